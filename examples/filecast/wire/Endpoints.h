#ifndef FILECAST_WIRE_ENDPOINTS_H
#define FILECAST_WIRE_ENDPOINTS_H

#include "net/VORNDGramMulticast.h"
#include "wire/Addresses.h"
#include "wire/PeerList.h"

#include <vector>

/// The sockets of both sides, made of the library's endpoints. Constructors throw a `Failure`.

/// This program's use of the interface table. Made before the first endpoint, and outlives them.
class InterfaceTable {
public:
  explicit InterfaceTable(PeerList* peers);
  ~InterfaceTable();
  InterfaceTable(const InterfaceTable&) = delete;
  InterfaceTable& operator=(const InterfaceTable&) = delete;
};

/// The sender's: sends to a group from every usable interface, or to each place of a list; receives
/// answers on a port of its own.
class SendEndpoints {
public:
  /// An empty `to` means the group. `ttl` is how many networks a datagram may cross, from 1 to 255.
  SendEndpoints(const AddressPort& group, const std::vector<AddressPort>& to, int ttl);

  /// Sends what the stream holds to every destination. Returns false, with `errno` as the last one
  /// left it, when the system took it for none of them.
  bool Send(VORNCDRStream* stream);
  VORNDGram& AnswersGet() { return _answers; }
  /// The port of `AnswersGet`, host byte order.
  int AnswerPortGet() const { return _answerPort; }

private:
  SendEndpoints(const AddressPort& group, const std::vector<AddressPort>& to,
                VORNMulticastProperties multicast);

  VORNDGramMulticast _data;
  VORNDGram _answers;
  int _answerPort = 0;
  std::vector<KELNetioAddr> _destinations;
};

/// A receiver's: receives from a group, or at one address of this host; answers from a port of its
/// own.
class ReceiveEndpoints {
public:
  /// The address of `at` is 0 to receive from the group. `from` is the address of this host that
  /// answers come from; 0: that of `at`, or the system's choice.
  ReceiveEndpoints(const AddressPort& group, const AddressPort& at, unsigned int from);

  VORNDGram& DataGet() { return _data; }
  /// How many datagrams of samples the receive buffer takes, 1 at least.
  std::uint32_t RoomGet() const { return _room; }
  /// Sends what the stream holds. Returns false, with `errno` set, when the system does not take
  /// it.
  bool Answer(const AddressPort& to, VORNCDRStream* stream);

private:
  VORNDGram _data;
  VORNDGram _answers;
  std::uint32_t _room;
};

#endif
