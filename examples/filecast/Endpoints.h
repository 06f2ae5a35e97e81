#ifndef FILECAST_ENDPOINTS_H
#define FILECAST_ENDPOINTS_H

#include "Options.h"
#include "Peers.h"
#include "net/VORNDGramMulticast.h"

#include <vector>

/// The sockets of both sides, made with this library's endpoints. Constructors throw a `Failure`.

/// This program's use of the interface table. Made before the first endpoint, and outlives them.
class InterfaceTable {
public:
  explicit InterfaceTable(Peers* peers);
  ~InterfaceTable();
  InterfaceTable(const InterfaceTable&) = delete;
  InterfaceTable& operator=(const InterfaceTable&) = delete;
};

/// Sends to the group from every usable interface, or in turn to each place of a list; receives
/// windows on a port of its own.
class SenderEndpoints {
public:
  explicit SenderEndpoints(const Options& options);

  /// Sends what the stream holds. Returns false, with `errno` set, at the first failure.
  bool Send(VORNCDRStream* stream);
  VORNDGram& AnswersGet() { return _answers; }
  int AnswerPortGet() const { return _answerPort; }

private:
  VORNDGramMulticast _data;
  VORNDGram _answers;
  int _answerPort = 0;
  std::vector<KELNetioAddr> _destinations;
};

/// Receives from the group, or at one address; answers from a port of its own.
class ReceiverEndpoints {
public:
  explicit ReceiverEndpoints(const Options& options);

  VORNDGram& DataGet() { return _data; }
  bool Answer(const AddressPort& to, VORNCDRStream* stream);

private:
  VORNDGram _data;
  VORNDGram _answers;
};

#endif
