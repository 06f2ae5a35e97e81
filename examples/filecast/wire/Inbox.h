#ifndef FILECAST_WIRE_INBOX_H
#define FILECAST_WIRE_INBOX_H

#include "net/VORNDGram.h"
#include "wire/Addresses.h"
#include "wire/Datagram.h"
#include "wire/LossGenerator.h"
#include "wire/PeerList.h"

#include <functional>

/// Reads datagrams from an endpoint. Those that come from a listed host and have a header of ours
/// go to a handler. All are counted.
class Inbox {
public:
  enum class Verdict {
    TAKEN,    ///< used, or nothing new in it
    FOREIGN,  ///< whole, but of another session or for somebody else
    GARBLED,  ///< no datagram of ours, or one that contradicts itself
  };
  /// Is given the stream at the first byte after the header.
  using Handler = std::function<Verdict(VORNCDRStream* stream, const Header& header,
                                        const AddressPort& source)>;

  struct Counts {
    std::uint64_t taken = 0;
    std::uint64_t foreign = 0;
    std::uint64_t garbled = 0;
    std::uint64_t refused = 0;  ///< from an address that is not admitted
    std::uint64_t dropped = 0;  ///< on purpose
  };

  /// All outlive the inbox. `loss` decides what is dropped on purpose; null: nothing is.
  Inbox(VORNDGram* endpoint, PeerList* peers, LossGenerator* loss, Handler handler);

  /// Reads the datagrams that wait, 64 at most: timers are not to be kept waiting. Returns how
  /// many.
  int DatagramsRead();
  const Counts& CountsGet() const { return _counts; }

private:
  Verdict DatagramHandle(int length, const AddressPort& source);

  VORNDGram* _endpoint;
  PeerList* _peers;
  LossGenerator* _loss;
  Handler _handler;
  Counts _counts;
  char _buffer[DATAGRAM_CAPACITY];
};

#endif
