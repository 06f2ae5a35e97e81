#ifndef VORNDIAG_QUEUE_WATCH_H
#define VORNDIAG_QUEUE_WATCH_H

#include "vorndiag/QueueLook.h"
#include "vorndiag/QueueVerdict.h"

#include <chrono>
#include <vector>

/// A first and a last look at queue `id`.
struct QueueWatch {
  int id = 0;
  QueueLook before;
  QueueLook after;
};

/// The first look at queue `id`, which is the last one too until it is watched.
QueueWatch QueueWatchBegin(int id);

/// Looks again at those queues whose looks show something wrong: at all of them, ten times with
/// `pause` before each, each until nothing is wrong any more. Returns at once if nothing is wrong.
/// Looking often matters: the offsets of a busy ring can be at the same place by chance. What the
/// verdicts say of a second holds for the pause that is the default.
void QueuesWatch(std::vector<QueueWatch>* watches,
                 std::chrono::milliseconds pause = std::chrono::milliseconds(100));

Verdict VerdictGet(const QueueWatch& watch);

#endif
