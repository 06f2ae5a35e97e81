#include "vorndiag/QueueWatch.h"

#include <thread>

namespace {

constexpr int LOOKS = 10;

std::vector<QueueWatch*> TroubledGet(std::vector<QueueWatch>* watches) {
  std::vector<QueueWatch*> troubled;
  for (QueueWatch& watch : *watches)
    if (VerdictGet(watch).isTrouble)
      troubled.push_back(&watch);
  return troubled;
}

}  // namespace

QueueWatch QueueWatchBegin(int id) {
  const QueueLook look = QueueLookGet(id);
  return {id, look, look};
}

void QueuesWatch(std::vector<QueueWatch>* watches, std::chrono::milliseconds pause) {
  for (int i = 0; i < LOOKS; ++i) {
    const std::vector<QueueWatch*> troubled = TroubledGet(watches);
    if (troubled.empty())
      return;
    std::this_thread::sleep_for(pause);
    for (QueueWatch* watch : troubled)
      watch->after = QueueLookGet(watch->id);
  }
}

Verdict VerdictGet(const QueueWatch& watch) {
  return VerdictGet(watch.id, watch.before, watch.after);
}
