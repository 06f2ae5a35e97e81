#include "vorndiag/QueueJson.h"

#include "vorndiag/QueueText.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

const char* StateText(ProcessState state) {
  switch (state) {
  case ProcessState::GONE:
    return "gone";
  case ProcessState::STOPPED:
    return "stopped";
  case ProcessState::ALIVE:
    return "alive";
  case ProcessState::UNKNOWN:
    break;
  }
  return "unknown";
}

std::string KeyText(std::uint32_t key) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08" PRIx32, key);
  return text;
}

void RingWrite(const SegmentLook& segment, JsonWriter* json) {
  json->Number("capacity", segment.capacity);
  if (!segment.offsets)
    return;
  json->Number("write_offset", segment.offsets->write);
  json->Number("read_offset", segment.offsets->read);
  json->Number("used", RingUsedGet(*segment.offsets, segment.capacity));
  json->Number("free", RingFreeGet(*segment.offsets, segment.capacity));
  if (segment.isMoving)
    return json->Null("messages");
  json->Number("messages", segment.messages.count);
  json->Number("longest", segment.messages.longest);
  if (segment.messages.isDamaged)
    json->Number("damage_offset", segment.messages.damageOffset);
}

void SegmentWrite(const SegmentLook& segment, JsonWriter* json) {
  if (!segment.Exists())
    return json->Null("segment");
  json->ObjectBegin("segment");
  json->Text("key", KeyText(segment.key));
  json->Number("id", segment.id);
  if (segment.error != 0) {
    json->Text("error", std::strerror(segment.error));
  } else {
    const char* fault = SegmentFaultText(segment.fault);
    json->Number("bytes", static_cast<std::int64_t>(segment.kernel.shm_segsz));
    json->Text("owner", UserText(segment.kernel.shm_perm.uid));
    json->Number("mode", segment.kernel.shm_perm.mode & 07777);
    ProcessWrite("maker", &segment.maker, json);
    json->Number("attached", static_cast<std::int64_t>(segment.kernel.shm_nattch));
    json->Number("last_attach", segment.kernel.shm_atime);
    json->Number("length", segment.length);
    json->Text("fault", fault != nullptr ? fault : "");
    if (fault == nullptr)
      RingWrite(segment, json);
  }
  json->End();
}

void SetWrite(const char* name, const SetLook& set, JsonWriter* json) {
  if (!set.Exists())
    return json->Null(name);
  json->ObjectBegin(name);
  json->Text("key", KeyText(set.key));
  json->Number("id", set.id);
  if (set.error != 0) {
    json->Text("error", std::strerror(set.error));
  } else {
    json->Number("semaphores", set.semaphores);
    json->Number("value", set.value);
    json->Number("waiting", set.waiting);
    json->Flag("taken", set.IsTaken());
    json->Number("time", set.LastTime());
    ProcessWrite("process", &set.process, json);
  }
  json->End();
}

}  // namespace

void ProcessWrite(const char* name, const Process* process, JsonWriter* json) {
  if (process == nullptr)
    return json->Null(name);
  json->ObjectBegin(name);
  json->Number("pid", process->pid);
  json->Text("state", StateText(process->state));
  json->Text("name", process->name);
  json->End();
}

void QueueFieldsWrite(const QueueWatch& watch, const Verdict& verdict, JsonWriter* json) {
  json->Number("id", watch.id);
  json->Flag("wrong", verdict.isTrouble);
  json->Texts("lines", verdict.lines);
  SegmentWrite(watch.after.segment, json);
  SetWrite("semaphore", watch.after.semaphore, json);
  SetWrite("mutex", watch.after.mutex, json);
}

void ActionFieldsWrite(const ActionReport& report, JsonWriter* json) {
  json->Text("refusal", report.refusal);
  json->ArrayBegin("steps");
  for (const ActionStep& step : report.steps) {
    json->ObjectBegin();
    json->Text("what", step.what);
    json->Number("id", step.id);
    json->Text("error", step.error != 0 ? std::strerror(step.error) : "");
    json->End();
  }
  json->End();
  json->Text("note", report.note);
}
