#ifndef VORNDIAG_QUEUE_VERDICT_H
#define VORNDIAG_QUEUE_VERDICT_H

#include "vorndiag/QueueLook.h"

#include <string>
#include <vector>

/// Judgements about a queue, made of two looks: `before` and, up to a second later, `after`.
/// Senders hold the mutex for microseconds and a receiver is in the middle of a message for as long
/// as it copies it, so one look can catch a sound queue in a state that is wrong only if it lasts.
/// What both looks show is called wrong. To ask what may be wrong with one look, pass it twice.
///
/// All functions are pure: they look at nothing but their arguments.

/// How a mutex stands.
enum class MutexHold {
  FREE,     ///< or there is none
  BUSY,     ///< taken, but another time than before
  DEAD,     ///< taken by a process that is gone
  STOPPED,  ///< taken since `before` by a process that is stopped
  HELD,     ///< taken since `before` by a process that lives
  UNSEEN,   ///< taken since `before` by a process of which nothing is known
  UNTAKEN,  ///< 0 since `before`, but set so, or never given its first value
};

MutexHold MutexHoldGet(const SetLook& before, const SetLook& after);

/// Whether somebody waits for a message although there is one: for a moment that is sound.
bool ReceiverSleepsBesideMessages(const QueueLook& look);

/// Why one of the objects cannot be a queue's, in words that name the object; empty if all can.
std::string ForeignTextGet(const QueueLook& look);

/// What the fault of a segment is, in words; null for none.
const char* SegmentFaultText(SegmentFault fault);

struct Verdict {
  bool isTrouble = false;
  std::vector<std::string> lines;  ///< at least one; troubles only, if there are any
};

/// What is wrong with queue `id`, and what to do about it.
Verdict VerdictGet(int id, const QueueLook& before, const QueueLook& after);

#endif
