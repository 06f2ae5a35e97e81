#ifndef EXAMPLES_QUEUE_QUEUE_LOOK_H
#define EXAMPLES_QUEUE_QUEUE_LOOK_H

#include <sys/types.h>

/// What a logger finds on the host before it makes a queue or takes one over.
enum class Finding {
  NONE,             ///< there is no queue
  LEFT_MUTEX,       ///< there is none, but the mutex of an earlier one, taken: a maker would wait
  NOT_ALLOWED,      ///< this user may not use the queue, or a part of it
  FOREIGN_SEGMENT,  ///< what lies under the queue's key is not a queue
  MAKER_LIVES,      ///< the process number of the maker is in use
  MAKER_UNSEEN,     ///< its maker runs, or ran, in another PID namespace
  RECEIVER_WAITS,   ///< somebody else receives from it
  LEFT_BEHIND,      ///< its maker is gone and nobody waits for its messages
};

struct QueueLook {
  Finding finding = Finding::NONE;
  pid_t maker = 0;  ///< as seen from here; 0: not to be seen, or no queue
};

/// Looks at queue `id` and changes nothing. It takes a tenth of a second when its mutex is taken.
QueueLook QueueLookAt(int id);

/// Whether somebody has held the mutex of queue `id` for a tenth of a second, which no living
/// sender of small messages does.
bool MutexIsStuck(int id);

#endif
