#include "vorndiag/LiveView.h"
#include "vorndiag/QueueFind.h"
#include "vorndiag/QueueJson.h"
#include "vorndiag/QueueText.h"

#include <cstdio>

namespace {

void JsonBegin(const char* action, JsonWriter* json) {
  json->ObjectBegin();
  json->Text("command", "queues");
  json->Text("action", action);
  json->ArrayBegin("queues");
}

void JsonFinish(JsonWriter* json) {
  json->End();
  json->End();
  json->Print();
}

void RowsPrint(const std::vector<QueueWatch>& watches) {
  if (watches.empty()) {
    std::printf("there is no queue in this IPC namespace\n");
    return;
  }
  std::printf("%s", QUEUE_ROW_HEADING);
  for (const QueueWatch& watch : watches)
    QueueRowPrint(watch, VerdictGet(watch));
}

void RowsWrite(const std::vector<QueueWatch>& watches) {
  JsonWriter json;
  JsonBegin("", &json);
  for (const QueueWatch& watch : watches) {
    json.ObjectBegin();
    QueueFieldsWrite(watch, VerdictGet(watch), &json);
    json.End();
  }
  JsonFinish(&json);
}

ExitCode QueuesShow(const std::vector<QueueWatch>& watches, Format format) {
  format == Format::JSON ? RowsWrite(watches) : RowsPrint(watches);
  for (const QueueWatch& watch : watches)
    if (VerdictGet(watch).isTrouble)
      return EXIT_TROUBLE;
  return EXIT_FINE;
}

// A timer's log stays empty while there is nothing to do.
void HealedPrint(int id, const ActionReport& report) {
  if (report.steps.empty() && report.refusal.empty())
    return;
  std::printf("queue %d:\n", id);
  ActionPrint(report);
}

ExitCode QueuesHeal(const std::vector<QueueWatch>& watches, Format format) {
  ExitCode code = EXIT_FINE;
  JsonWriter json;
  JsonBegin("heal", &json);
  for (const QueueWatch& watch : watches) {
    const ActionReport report = QueueHeal(watch);
    if (report.code != EXIT_FINE)
      code = EXIT_TROUBLE;
    json.ObjectBegin();
    json.Number("id", watch.id);
    ActionFieldsWrite(report, &json);
    json.End();
    if (format == Format::TEXT)
      HealedPrint(watch.id, report);
  }
  if (format == Format::JSON)
    JsonFinish(&json);
  return code;
}

std::set<int> IdsFind() {
  std::set<int> ids;
  for (const QueueWatch& watch : QueuesFind().value_or(std::vector<QueueWatch>()))
    ids.insert(watch.id);
  return ids;
}

}  // namespace

ExitCode QueuesCommand(const QueuesOptions& options, Format format) {
  std::optional<std::vector<QueueWatch>> watches = QueuesFind();
  if (!watches) {
    std::fprintf(stderr, "cannot read %s and %s\n", SEGMENT_LIST, SET_LIST);
    return EXIT_TROUBLE;
  }
  if (options.live.isOn)
    return LiveViewRun(options.live, format, IdsFind);
  QueuesWatch(&*watches);
  return options.heal ? QueuesHeal(*watches, format) : QueuesShow(*watches, format);
}
