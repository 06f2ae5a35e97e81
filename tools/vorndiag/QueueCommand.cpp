#include "Commands.h"
#include "Process.h"
#include "QueueActions.h"
#include "QueueState.h"
#include "QueueVerdict.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <pwd.h>

namespace {

std::string TimeText(std::time_t time) {
  tm parts{};
  char text[32];
  if (time == 0 || localtime_r(&time, &parts) == nullptr ||
      std::strftime(text, sizeof text, "%F %T", &parts) == 0)
    return "never";
  return text;
}

std::string UserText(uid_t user) {
  const passwd* entry = getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

void RingPrint(const SegmentState& segment) {
  std::printf("  ring       %d bytes: write offset %" PRId32 ", read offset %" PRId32
              ", %d used, %d free\n",
              segment.capacity, segment.writeOffset, segment.readOffset, segment.used,
              segment.capacity - 1 - segment.used);
  if (segment.walk == Walk::MOVING)
    std::printf("  messages   the receiver takes them faster than they can be counted\n");
  else if (segment.walk == Walk::WHOLE && segment.messages == 0)
    std::printf("  messages   none waiting\n");
  else if (segment.walk == Walk::WHOLE)
    std::printf("  messages   %d waiting, the longest has %d bytes\n", segment.messages,
                segment.longest);
  else if (segment.walk == Walk::DAMAGED)
    std::printf("  messages   %d good ones, then at ring offset %d a length of %" PRId32 "\n",
                segment.messages, segment.damageOffset, segment.damageLength);
}

void SegmentPrint(const SegmentState& segment) {
  std::printf("  segment    key 0x%08" PRIx32, segment.key);
  if (!segment.Exists()) {
    std::printf(": none\n");
    return;
  }
  const shmid_ds& kernel = segment.kernel;
  if (segment.error != 0) {
    std::printf(", id %d: %s\n", segment.id, std::strerror(segment.error));
    return;
  }
  std::printf(", id %d, %zu bytes, owner %s, mode %04o\n", segment.id,
              static_cast<std::size_t>(kernel.shm_segsz), UserText(kernel.shm_perm.uid).c_str(),
              static_cast<unsigned int>(kernel.shm_perm.mode & 07777));
  std::printf("             made by %s, %lu attached, last attach %s\n",
              ProcessText(kernel.shm_cpid, kernel.shm_ctime).c_str(),
              static_cast<unsigned long>(kernel.shm_nattch), TimeText(kernel.shm_atime).c_str());
  std::printf("  length     %" PRIu32 ": %s\n", segment.length,
              segment.capacity == 0 ? segment.problem : "fits the segment");
  if (segment.capacity > 0)
    RingPrint(segment);
}

void SetPrint(const char* what, const SetState& set) {
  std::printf("  %-10s key 0x%08" PRIx32, what, set.key);
  if (!set.Exists())
    std::printf(": none\n");
  else if (set.error != 0)
    std::printf(", id %d: %s\n", set.id, std::strerror(set.error));
  else
    std::printf(", id %d, value %d, %d waiting; last %s by %s at %s\n", set.id, set.value,
                set.waiting, set.WasTaken() ? "taken" : "set",
                ProcessText(set.pid, set.LastTime()).c_str(), TimeText(set.LastTime()).c_str());
}

}  // namespace

ExitCode QueueCommand(const QueueOptions& options) {
  const QueueState state = QueueLook(options.id);
  if (!state.AnyExists()) {
    std::printf("there is no queue %d in this IPC namespace (key 0x%08" PRIx32 ")\n", options.id,
                state.segment.key);
    return EXIT_NOTHING;
  }
  if (options.giveMutex)
    return MutexGiveBack(state, options.force);
  if (options.remove)
    return QueueRemove(state);
  std::printf("queue %d\n", options.id);
  SegmentPrint(state.segment);
  SetPrint("semaphore", state.semaphore);
  SetPrint("mutex", state.mutex);
  const Verdict verdict = VerdictGet(options.id, state);
  for (const std::string& line : verdict.lines)
    std::printf("%s%s\n", verdict.isTrouble ? "WRONG: " : "", line.c_str());
  return verdict.isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
