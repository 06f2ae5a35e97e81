#include "Commands.h"
#include "QueueState.h"
#include "QueueVerdict.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <limits>
#include <set>

namespace {

constexpr std::uint32_t FIRST_KEY = 0xABBD0000;
constexpr std::uint32_t LAST_KEY = 0xABBDFFFF;

// Adds the ids of the queues whose keys the kernel's list in `path` shows. The first column is the
// key, as a signed number.
bool IdsCollect(const char* path, std::set<int>* ids) {
  std::ifstream file(path);
  if (!file)
    return false;
  constexpr auto ALL = std::numeric_limits<std::streamsize>::max();
  file.ignore(ALL, '\n');
  std::int64_t signedKey = 0;
  while (file >> signedKey) {
    const auto key = static_cast<std::uint32_t>(signedKey);
    if (key >= FIRST_KEY && key <= LAST_KEY)
      ids->insert(static_cast<int>((key - FIRST_KEY) / 2));
    file.ignore(ALL, '\n');
  }
  return true;
}

void RowPrint(int id, const QueueState& state, const Verdict& verdict) {
  const SegmentState& segment = state.segment;
  const int free = segment.capacity > 0 ? segment.capacity - 1 - segment.used : 0;
  std::printf("%6d  0x%08" PRIx32 "  %10zu  %8lu  %8d  %10d  %s\n", id, segment.key,
              static_cast<std::size_t>(segment.kernel.shm_segsz),
              static_cast<unsigned long>(segment.kernel.shm_nattch), segment.messages, free,
              verdict.isTrouble ? verdict.lines.front().c_str() : "fine");
}

}  // namespace

ExitCode QueuesCommand() {
  std::set<int> ids;
  if (!IdsCollect("/proc/sysvipc/shm", &ids) || !IdsCollect("/proc/sysvipc/sem", &ids)) {
    std::printf("cannot read /proc/sysvipc/shm and /proc/sysvipc/sem\n");
    return EXIT_TROUBLE;
  }
  if (ids.empty()) {
    std::printf("there is no queue in this IPC namespace\n");
    return EXIT_FINE;
  }
  std::printf("%6s  %-10s  %10s  %8s  %8s  %10s\n", "queue", "key", "bytes", "attached", "messages",
              "free");
  bool isTrouble = false;
  for (const int id : ids) {
    const QueueState state = QueueLook(id);
    if (!state.AnyExists())
      continue;  // removed since the list was read
    const Verdict verdict = VerdictGet(id, state);
    RowPrint(id, state, verdict);
    isTrouble |= verdict.isTrouble;
  }
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
