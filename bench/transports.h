#ifndef BENCH_TRANSPORTS_H
#define BENCH_TRANSPORTS_H

#include "support/Case.h"

#include <memory>
#include <string>
#include <vector>

/// Everything that carries messages from many processes to one, behind one face. A transport is
/// made before its senders are forked, which use what they inherit. It has the buffers, since one
/// of the peers wants something in front of its bytes: a program lays its own out in that way.
class Transport {
public:
  virtual ~Transport() = default;
  /// Sends the first `length` bytes of `Out`. False when it is full and does not wait by itself.
  virtual bool Send(int length) = 0;
  /// Waits for the oldest message, of at most `length` bytes, which is then in `In`. Returns its
  /// length.
  virtual int Receive(int length) = 0;

  char* Out() { return _out.data() + FRONT; }
  char* In() { return _in.data() + FRONT; }

protected:
  static constexpr std::size_t FRONT = sizeof(long);
  explicit Transport(int length)
      : _out(FRONT + static_cast<std::size_t>(length)), _in(_out.size()) {}

private:
  std::vector<char> _out;
  std::vector<char> _in;
};

struct TransportKind {
  std::string name;
  Role role;
  /// For messages of up to `length` bytes, and about `room` bytes of them at a time. Throws
  /// `Unavailable` when the host does not allow such messages.
  std::unique_ptr<Transport> (*make)(int length, int room);
};

/// The library, its floor, and the peers.
const std::vector<TransportKind>& TransportKinds();

#endif
