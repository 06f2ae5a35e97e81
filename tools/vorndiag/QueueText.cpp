#include "vorndiag/QueueText.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include <pwd.h>

namespace {

void MessagesPrint(const SegmentLook& segment) {
  const RingMessages& messages = segment.messages;
  if (segment.isMoving)
    std::printf("  messages   they are received faster than they can be counted\n");
  else if (messages.isDamaged)
    std::printf("  messages   %d good ones, then at ring offset %d a length of %" PRId32 "\n",
                messages.count, messages.damageOffset, messages.damageLength);
  else if (messages.count == 0)
    std::printf("  messages   none waiting\n");
  else
    std::printf("  messages   %d waiting, the longest has %d bytes\n", messages.count,
                messages.longest);
}

void RingPrint(const SegmentLook& segment) {
  std::printf("  ring       %d bytes: ", segment.capacity);
  if (!segment.offsets) {
    std::printf("an offset lies outside of it\n");
    return;
  }
  std::printf("write offset %d, read offset %d, %d used, %d free\n", segment.offsets->write,
              segment.offsets->read, RingUsedGet(*segment.offsets, segment.capacity),
              RingFreeGet(*segment.offsets, segment.capacity));
  MessagesPrint(segment);
}

void SegmentPrint(const SegmentLook& segment) {
  std::printf("  segment    key 0x%08" PRIx32, segment.key);
  if (!segment.Exists()) {
    std::printf(": none\n");
    return;
  }
  if (segment.error != 0) {
    std::printf(", id %d: %s\n", segment.id, std::strerror(segment.error));
    return;
  }
  const shmid_ds& kernel = segment.kernel;
  std::printf(", id %d, %zu bytes, owner %s, mode %04o\n", segment.id,
              static_cast<std::size_t>(kernel.shm_segsz), UserText(kernel.shm_perm.uid).c_str(),
              static_cast<unsigned int>(kernel.shm_perm.mode & 07777));
  std::printf("             made by %s, %lu attached, last attach %s\n",
              ProcessText(segment.maker).c_str(), static_cast<unsigned long>(kernel.shm_nattch),
              TimeText(kernel.shm_atime).c_str());
  const char* fault = SegmentFaultText(segment.fault);
  std::printf("  length     %" PRIu32 ": %s\n", segment.length,
              fault != nullptr ? fault : "fits the segment");
  if (fault == nullptr)
    RingPrint(segment);
}

void SetPrint(const char* what, const SetLook& set) {
  std::printf("  %-10s key 0x%08" PRIx32, what, set.key);
  if (!set.Exists())
    std::printf(": none\n");
  else if (set.error != 0)
    std::printf(", id %d: %s\n", set.id, std::strerror(set.error));
  else
    std::printf(", id %d, value %d, %d waiting; last %s by %s at %s\n", set.id, set.value,
                set.waiting, set.IsTaken() ? "taken" : "set", ProcessText(set.process).c_str(),
                TimeText(set.LastTime()).c_str());
}

}  // namespace

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

void QueuePrint(const QueueWatch& watch, const Verdict& verdict) {
  std::printf("queue %d\n", watch.id);
  SegmentPrint(watch.after.segment);
  SetPrint("semaphore", watch.after.semaphore);
  SetPrint("mutex", watch.after.mutex);
  for (const std::string& line : verdict.lines)
    std::printf("%s%s\n", verdict.isTrouble ? "WRONG: " : "", line.c_str());
}

void QueueRowPrint(const QueueWatch& watch, const Verdict& verdict) {
  const SegmentLook& segment = watch.after.segment;
  const int free = segment.offsets ? RingFreeGet(*segment.offsets, segment.capacity) : 0;
  const bool isFine = !verdict.isTrouble && segment.Exists();
  std::printf("%11d  0x%08" PRIx32 "  %10zu  %8lu  %8d  %10d  %s%s\n", watch.id, segment.key,
              static_cast<std::size_t>(segment.kernel.shm_segsz),
              static_cast<unsigned long>(segment.kernel.shm_nattch), segment.messages.count, free,
              verdict.isTrouble ? "WRONG: " : "", isFine ? "fine" : verdict.lines.front().c_str());
}

void ActionPrint(const ActionReport& report) {
  if (!report.refusal.empty())
    std::printf("%s\n", report.refusal.c_str());
  for (const ActionStep& step : report.steps) {
    if (step.error == 0)
      std::printf("%s (id %d): done\n", step.what, step.id);
    else
      std::printf("%s (id %d) FAILED: %s\n", step.what, step.id, std::strerror(step.error));
  }
  if (!report.note.empty())
    std::printf("%s\n", report.note.c_str());
}
