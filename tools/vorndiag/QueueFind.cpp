#include "vorndiag/QueueFind.h"

#include "vorndiag/QueueList.h"

#include <fstream>

std::optional<std::vector<QueueWatch>> QueuesFind() {
  std::ifstream segments(SEGMENT_LIST);
  std::ifstream sets(SET_LIST);
  if (!segments || !sets)
    return std::nullopt;
  std::vector<QueueWatch> watches;
  for (const int id : CandidatesGet(KeysGet(&segments), KeysGet(&sets))) {
    const QueueWatch watch = QueueWatchBegin(id);
    if (QueueIsLikely(id, watch.before))
      watches.push_back(watch);
  }
  return watches;
}
