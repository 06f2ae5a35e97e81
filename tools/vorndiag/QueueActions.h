#ifndef VORNDIAG_QUEUE_ACTIONS_H
#define VORNDIAG_QUEUE_ACTIONS_H

#include "vorndiag/Commands.h"
#include "vorndiag/QueueWatch.h"

#include <string>
#include <vector>

/// What changes a queue. Without `force`, the actions leave alone what may be in another one's use:
/// objects that cannot be a queue's, and the mutex of a holder that is not known to be gone.

/// One change of one object.
struct ActionStep {
  const char* what;  ///< such as "removing the mutex"
  int id;            ///< of the object
  int error;         ///< `errno` when the kernel refused it, else 0
};

/// What an action did, in its order, or why it did nothing.
struct ActionReport {
  std::string refusal;  ///< empty if nothing spoke against it
  std::vector<ActionStep> steps;
  std::string note;           ///< what the user should know besides; often empty
  ExitCode code = EXIT_FINE;  ///< `EXIT_TROUBLE` when it was refused or a step failed
};

/// Makes the mutex free if its holder is gone, and wakes a receiver that a dead sender may not have
/// woken. With `force`: whoever holds the mutex. `EXIT_NOTHING` without a mutex.
ActionReport MutexGiveBack(const QueueWatch& watch, bool force);

/// Removes mutex, semaphore and segment, in use or not, as far as they are there.
ActionReport QueueRemove(const QueueLook& look, bool force);

/// What a timer may do unasked: gives back the mutex of a holder that is provably gone, and wakes a
/// receiver that sleeps beside messages. Nothing else, whatever else is wrong; no step is no
/// failure.
ActionReport QueueHeal(const QueueWatch& watch);

#endif
