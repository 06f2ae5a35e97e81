#include "vorndiag/LiveView.h"
#include "vorndiag/QueueJson.h"
#include "vorndiag/QueueText.h"

#include <cinttypes>
#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace {

void JsonBegin(int id, const char* action, JsonWriter* json) {
  json->ObjectBegin();
  json->Text("command", "queue");
  json->Text("action", action);
  if (*action != '\0')
    json->Number("id", id);
}

ExitCode AbsenceShow(const QueueWatch& watch, Format format) {
  if (format == Format::JSON) {
    JsonWriter json;
    JsonBegin(watch.id, "", &json);
    json.Null("queue");
    json.End();
    json.Print();
  } else {
    std::printf("there is no queue %d in this IPC namespace (key 0x%08" PRIx32 ")\n", watch.id,
                watch.before.segment.key);
  }
  return EXIT_NOTHING;
}

ExitCode ActionShow(int id, const char* action, const ActionReport& report, Format format) {
  if (format == Format::JSON) {
    JsonWriter json;
    JsonBegin(id, action, &json);
    ActionFieldsWrite(report, &json);
    json.End();
    json.Print();
  } else {
    ActionPrint(report);
  }
  return report.code;
}

ExitCode QueueShow(const QueueWatch& watch, Format format) {
  const Verdict verdict = VerdictGet(watch);
  if (format == Format::JSON) {
    JsonWriter json;
    JsonBegin(watch.id, "", &json);
    json.ObjectBegin("queue");
    QueueFieldsWrite(watch, verdict, &json);
    json.End();
    json.End();
    json.Print();
  } else {
    QueuePrint(watch, verdict);
  }
  return verdict.isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}

// Asks a person. A script is not asked: it was told.
bool RemovalIsMeant(const QueueWatch& watch, const QueueOptions& options) {
  if (options.isSure || isatty(STDIN_FILENO) == 0)
    return true;
  std::fprintf(stderr, "queue %d: %lu attached, %d messages wait; remove it? [y/N] ", watch.id,
               static_cast<unsigned long>(watch.before.segment.kernel.shm_nattch),
               watch.before.segment.messages.count);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

ActionReport RemovalRun(const QueueWatch& watch, const QueueOptions& options) {
  if (!RemovalIsMeant(watch, options))
    return {"NOT removed", {}, "", EXIT_TROUBLE};
  return QueueRemove(watch.before, options.force);
}

ActionReport HealRun(const QueueWatch& watch) {
  ActionReport report = QueueHeal(watch);
  if (report.steps.empty() && report.refusal.empty())
    report.note = "nothing to heal";
  return report;
}

}  // namespace

ExitCode QueueCommand(const QueueOptions& options, Format format) {
  std::vector<QueueWatch> watches{QueueWatchBegin(options.id)};
  const QueueWatch& watch = watches.front();
  if (!watch.before.AnyExists())
    return AbsenceShow(watch, format);
  if (options.live.isOn)
    return LiveViewRun(options.live, format, [&] { return std::set<int>{options.id}; });
  if (options.remove)
    return ActionShow(options.id, "remove", RemovalRun(watch, options), format);
  QueuesWatch(&watches);
  if (options.giveMutex)
    return ActionShow(options.id, "give-mutex", MutexGiveBack(watch, options.force), format);
  if (options.heal)
    return ActionShow(options.id, "heal", HealRun(watch), format);
  return QueueShow(watch, format);
}
