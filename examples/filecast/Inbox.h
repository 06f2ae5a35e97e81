#ifndef FILECAST_INBOX_H
#define FILECAST_INBOX_H

#include "Addresses.h"
#include "Datagram.h"
#include "LossGenerator.h"
#include "Peers.h"
#include "net/VORNDGram.h"

#include <functional>

/// Takes datagrams from an endpoint, and lets through what comes from a peer and has a header of
/// ours. Everything else is counted.
class Inbox {
public:
  enum class Verdict {
    TAKEN,    ///< used, or nothing new in it
    FOREIGN,  ///< whole, but of another session or for somebody else
    GARBLED,  ///< no datagram of ours, or one that contradicts itself
  };
  /// Is given the stream behind the header.
  using Handler = std::function<Verdict(VORNCDRStream* stream, const Header& header,
                                        const AddressPort& source)>;

  struct Counts {
    std::uint64_t taken = 0;
    std::uint64_t foreign = 0;
    std::uint64_t garbled = 0;
    std::uint64_t refused = 0;  ///< from an address that is not admitted
    std::uint64_t dropped = 0;  ///< on purpose
  };

  Inbox(VORNDGram* endpoint, Peers* peers, LossGenerator* loss, Handler handler);

  /// Takes what waits, a few dozen datagrams at most so that timers are not kept waiting.
  void Take();
  const Counts& CountsGet() const { return _counts; }

private:
  Verdict DatagramTake(int length, const AddressPort& source);

  VORNDGram* _endpoint;
  Peers* _peers;
  LossGenerator* _loss;
  Handler _handler;
  Counts _counts;
  char _buffer[DATAGRAM_CAPACITY];
};

#endif
