#ifndef TOOLS_VORNDIAG_QUEUE_ACTIONS_H
#define TOOLS_VORNDIAG_QUEUE_ACTIONS_H

#include "Commands.h"
#include "QueueState.h"

/// Makes the mutex free if its holder is gone (with `force`: whoever holds it), and wakes a
/// receiver that a dead sender may not have woken. Says what it did.
ExitCode MutexGiveBack(const QueueState& state, bool force);

/// Removes mutex, semaphore and segment, as far as they are there. Says what it did.
ExitCode QueueRemove(const QueueState& state);

#endif
