#ifndef EXAMPLES_QUEUE_REFUSAL_H
#define EXAMPLES_QUEUE_REFUSAL_H

#include "QueueLook.h"

/// What a logger says to standard error when it does not get its queue: the cause, and the command
/// that comes next.

/// Prints why queue `id` may not be had, as `look` shows. Not for `Finding::NONE`.
void FindingPrint(int id, const QueueLook& look);

/// Prints which of the host's limits refuses a new queue of `size` bytes.
void LimitPrint(int id, unsigned int size);

/// Prints why the seat at queue `id` is not to be had: `error` is what `LoggerSeat` says.
void SeatPrint(int id, int error);

#endif
