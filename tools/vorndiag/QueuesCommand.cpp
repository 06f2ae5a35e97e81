#include "vorndiag/Commands.h"
#include "vorndiag/QueueList.h"
#include "vorndiag/QueueWatch.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <optional>

namespace {

constexpr const char* SEGMENT_LIST = "/proc/sysvipc/shm";
constexpr const char* SET_LIST = "/proc/sysvipc/sem";

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

// Returns whether something is wrong with the queue.
bool RowPrint(const QueueWatch& watch) {
  const SegmentLook& segment = watch.after.segment;
  const Verdict verdict = VerdictGet(watch);
  const int free = segment.offsets ? RingFreeGet(*segment.offsets, segment.capacity) : 0;
  const bool isFine = !verdict.isTrouble && segment.Exists();
  std::printf("%11d  0x%08" PRIx32 "  %10zu  %8lu  %8d  %10d  %s%s\n", watch.id, segment.key,
              static_cast<std::size_t>(segment.kernel.shm_segsz),
              static_cast<unsigned long>(segment.kernel.shm_nattch), segment.messages.count, free,
              verdict.isTrouble ? "WRONG: " : "", isFine ? "fine" : verdict.lines.front().c_str());
  return verdict.isTrouble;
}

}  // namespace

ExitCode QueuesCommand() {
  std::optional<std::vector<QueueWatch>> watches = QueuesFind();
  if (!watches) {
    std::printf("cannot read %s and %s\n", SEGMENT_LIST, SET_LIST);
    return EXIT_TROUBLE;
  }
  if (watches->empty()) {
    std::printf("there is no queue in this IPC namespace\n");
    return EXIT_FINE;
  }
  QueuesWatch(&*watches);
  std::printf("%11s  %-10s  %10s  %8s  %8s  %10s\n", "queue", "key", "bytes", "attached",
              "messages", "free");
  bool isTrouble = false;
  for (const QueueWatch& watch : *watches)
    isTrouble |= RowPrint(watch);
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
