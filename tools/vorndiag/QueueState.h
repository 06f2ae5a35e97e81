#ifndef TOOLS_VORNDIAG_QUEUE_STATE_H
#define TOOLS_VORNDIAG_QUEUE_STATE_H

#include <cstdint>
#include <ctime>

#include <sys/shm.h>

/// A look at one queue that makes, takes and gives nothing on the host. The segment is attached for
/// reading only; the kernel notes that as its last attach. docs/queue-layout.md describes what is
/// looked at.

/// A semaphore set of one semaphore.
struct SetState {
  std::uint32_t key = 0;
  int id = -1;    ///< negative: there is none
  int error = 0;  ///< `errno` when it could not be looked at
  int value = 0;
  int waiting = 0;        ///< processes that wait for it
  int pid = 0;            ///< the last one that took or gave; 0: in another namespace
  std::time_t taken = 0;  ///< when it was last taken
  std::time_t given = 0;  ///< when it was last given, or made

  bool Exists() const { return id >= 0; }
  /// When `pid` did what it did.
  std::time_t LastTime() const { return WasTaken() ? taken : given; }
  /// Whether a take was the last that happened to it. Its maker may have given it the value 0.
  bool WasTaken() const { return value == 0 && taken != 0; }
};

/// What the walk over the messages found.
enum class Walk {
  NONE,     ///< nothing to walk over: see `SegmentState::problem`
  WHOLE,    ///< all messages are framed
  DAMAGED,  ///< a length that reaches beyond what was written
  MOVING,   ///< the receiver took messages meanwhile, each time it was tried
};

struct SegmentState {
  std::uint32_t key = 0;
  int id = -1;                    ///< negative: there is none
  int error = 0;                  ///< `errno` when it could not be looked at
  shmid_ds kernel{};              ///< as it was before this look attached
  const char* problem = nullptr;  ///< why the header cannot be used
  std::uint32_t length = 0;       ///< the length word
  std::int32_t writeOffset = 0;
  std::int32_t readOffset = 0;
  int capacity = 0;  ///< bytes of the ring
  int used = 0;
  Walk walk = Walk::NONE;
  int messages = 0;  ///< good ones, up to the end or the damage
  int longest = 0;
  int damageOffset = 0;           ///< in the ring
  std::int32_t damageLength = 0;  ///< what the length word there says

  bool Exists() const { return id >= 0; }
};

struct QueueState {
  SegmentState segment;
  SetState semaphore;
  SetState mutex;

  bool AnyExists() const { return segment.Exists() || semaphore.Exists() || mutex.Exists(); }
};

std::uint32_t QueueKeyGet(int id);
QueueState QueueLook(int id);
SetState SetLook(std::uint32_t key);

#endif
