#ifndef VORNDIAG_QUEUE_LOOK_H
#define VORNDIAG_QUEUE_LOOK_H

#include "ipc/internal/QueueLayout.h"
#include "vorndiag/Process.h"

#include <cstdint>
#include <ctime>
#include <optional>

#include <sys/shm.h>

/// One look at a queue: what its three objects were at that moment, and what had become of the
/// processes that used them. A look is a value; judgements are made of two of them, see
/// QueueVerdict.h.
///
/// Looking makes, takes and gives nothing on the host. It attaches the segment for reading only;
/// the kernel notes that as the segment's last attach.

/// A semaphore set under one of the queue's keys.
struct SetLook {
  std::uint32_t key = 0;
  int id = -1;            ///< negative: there is none
  int error = 0;          ///< `errno` when it could not be looked at, else 0
  int semaphores = 0;     ///< 1 in a set of a queue
  unsigned int mode = 0;  ///< permission bits
  int value = 0;
  int waiting = 0;        ///< processes and threads that wait for it
  std::time_t taken = 0;  ///< when it was last taken; 0: never
  std::time_t set = 0;    ///< when it was made or last given, which sets its value
  Process process;        ///< the last one that took or gave it, seen while the rest stood still

  bool Exists() const { return id >= 0; }
  /// Whether a take was the last that happened to it. Otherwise a value of 0 was set by `process`,
  /// or the set is being made.
  bool IsTaken() const { return value == 0 && taken >= set; }
  /// When `process` did what it did.
  std::time_t LastTime() const { return IsTaken() ? taken : set; }
};

struct SegmentLook {
  std::uint32_t key = 0;
  int id = -1;                              ///< negative: there is none
  int error = 0;                            ///< `errno` when it could not be looked at, else 0
  shmid_ds kernel{};                        ///< as it was before this look attached
  Process maker;                            ///< the process that made it
  std::uint32_t length = 0;                 ///< the length word
  SegmentFault fault = SegmentFault::NONE;  ///< why there is no ring
  int capacity = 0;                         ///< bytes of the ring; 0 without one
  std::optional<RingOffsets> offsets;       ///< none: one lies outside the ring
  bool isMoving = false;  ///< the receiver moved on during each walk: `messages` are unknown
  RingMessages messages;
  RingMessages written;  ///< what lies between an earlier write offset and this one, if asked for

  bool Exists() const { return id >= 0; }
};

struct QueueLook {
  SegmentLook segment;
  SetLook semaphore;
  SetLook mutex;

  bool AnyExists() const { return segment.Exists() || semaphore.Exists() || mutex.Exists(); }
};

/// Looks at queue `id`, any number. With the write offset of an earlier look, also at what was
/// written since: that is still in the ring, received or not, until the ring has gone round once.
QueueLook QueueLookGet(int id, std::optional<int> earlierWrite = std::nullopt);

#endif
