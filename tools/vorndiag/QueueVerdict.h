#ifndef TOOLS_VORNDIAG_QUEUE_VERDICT_H
#define TOOLS_VORNDIAG_QUEUE_VERDICT_H

#include "QueueState.h"

#include <string>
#include <vector>

/// How a mutex stands.
enum class MutexHold {
  FREE,     ///< or there is none
  BUSY,     ///< taken, but it moves
  DEAD,     ///< taken by a process that is gone
  STOPPED,  ///< taken by a process that is stopped
  HELD,     ///< taken for a second by a process that lives
  UNSEEN,   ///< taken for a second by a process that cannot be seen from here
};

/// Looks at the mutex again, for a second if need be: a send holds it for microseconds.
MutexHold MutexWatch(const SetState& mutex);

struct Verdict {
  bool isTrouble = false;
  std::vector<std::string> lines;
};

/// What is wrong with queue `id`, and what to do about it, in plain words.
Verdict VerdictGet(int id, const QueueState& state);

#endif
