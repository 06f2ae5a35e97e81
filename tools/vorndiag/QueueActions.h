#ifndef VORNDIAG_QUEUE_ACTIONS_H
#define VORNDIAG_QUEUE_ACTIONS_H

#include "vorndiag/Commands.h"
#include "vorndiag/QueueWatch.h"

/// What changes a queue. Both print what they did or why not, and return `EXIT_FINE` when it is
/// done, `EXIT_TROUBLE` when it is refused or the kernel refuses it. Without `force`, they leave
/// alone what may be in another one's use: objects that cannot be a queue's, and the mutex of a
/// holder that is not known to be gone.

/// Makes the mutex free if its holder is gone, and wakes a receiver that a dead sender may not have
/// woken. With `force`: whoever holds the mutex. `EXIT_NOTHING` without a mutex.
ExitCode MutexGiveBack(const QueueWatch& watch, bool force);

/// Removes mutex, semaphore and segment, in use or not, as far as they are there.
ExitCode QueueRemove(const QueueLook& look, bool force);

#endif
