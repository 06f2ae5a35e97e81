#include "vorndiag/LiveView.h"

#include "vorndiag/QueueJson.h"
#include "vorndiag/QueueLive.h"

#include <cstdio>
#include <map>
#include <thread>

#include <unistd.h>

namespace {

constexpr int LOOKS_PER_SECOND = 20;
constexpr std::chrono::milliseconds PAUSE(1000 / LOOKS_PER_SECOND);
constexpr const char* HOME_AND_CLEAR = "\x1b[H\x1b[J";

using Meters = std::map<int, QueueMeter>;

void MetersUpdate(const std::set<int>& ids, Meters* meters) {
  std::erase_if(*meters, [&](const auto& meter) { return !ids.contains(meter.first); });
  for (const int id : ids)
    meters->try_emplace(id, id);
}

void MetersRun(int seconds, Meters* meters) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(PAUSE);
    for (auto& [id, meter] : *meters)
      meter.Look();
  }
}

std::vector<QueueRow> RowsGet(const Meters& meters) {
  std::set<int> waited;
  for (const auto& [id, meter] : meters)
    for (const SetLook* set : {&meter.WatchGet().after.semaphore, &meter.WatchGet().after.mutex})
      if (set->Exists() && set->waiting > 0)
        waited.insert(set->id);
  const std::map<int, std::vector<Process>> waiters = WaitersFind(waited);
  std::vector<QueueRow> rows;
  for (const auto& [id, meter] : meters)
    rows.push_back(QueueRowGet(meter, waiters));
  return rows;
}

std::string WaitingText(const char* what, const SetLook& set, const std::vector<Process>& seen) {
  if (!set.Exists() || set.waiting == 0)
    return "";
  std::string text = std::string(", ") + what;
  for (const Process& process : seen)
    text += " " + ProcessText(process);
  return seen.empty() ? text + " " + std::to_string(set.waiting) + " that cannot be seen" : text;
}

std::string UsersText(const QueueRow& row) {
  const SetLook& mutex = row.watch.after.mutex;
  std::string text = mutex.Exists() && mutex.value == 0 ? ", held by " + ProcessText(mutex.process)
                                                        : std::string();
  text += WaitingText("to receive waits", row.watch.after.semaphore, row.receivers);
  text += WaitingText("to send waits", mutex, row.senders);
  return text.empty() ? "nobody waits" : text.substr(2);
}

double PercentGet(int used, int capacity) { return capacity > 0 ? 100.0 * used / capacity : 0; }

void RowPrint(const QueueRow& row) {
  const SegmentLook& segment = row.watch.after.segment;
  const int used = segment.offsets ? RingUsedGet(*segment.offsets, segment.capacity) : 0;
  std::printf("%11d %5.1f%% %9d %5.1f%% %s%9.0f %11.0f  %s", row.watch.id,
              PercentGet(used, segment.capacity), segment.messages.count,
              PercentGet(row.highest, segment.capacity), row.isLeast ? ">" : " ", row.messageRate,
              row.byteRate, UsersText(row).c_str());
  if (row.verdict.isTrouble)
    for (const std::string& line : row.verdict.lines)
      std::printf("; WRONG: %s", line.c_str());
  std::printf("\n");
}

void RowsPrint(const std::vector<QueueRow>& rows) {
  if (isatty(STDOUT_FILENO) != 0)
    std::printf("%s", HOME_AND_CLEAR);
  std::printf("%11s %6s %9s %6s  %9s %11s\n", "queue", "fill", "messages", "most", "sent/s",
              "bytes/s");
  for (const QueueRow& row : rows)
    RowPrint(row);
  if (rows.empty())
    std::printf("there is no queue\n");
  std::fflush(stdout);
}

void ProcessesWrite(const char* name, const std::vector<Process>& processes, JsonWriter* json) {
  json->ArrayBegin(name);
  for (const Process& process : processes)
    ProcessWrite("", &process, json);
  json->End();
}

void RowsWrite(const std::vector<QueueRow>& rows) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "watch");
  json.ArrayBegin("queues");
  for (const QueueRow& row : rows) {
    json.ObjectBegin();
    QueueFieldsWrite(row.watch, row.verdict, &json);
    json.Real("messages_per_second", row.messageRate);
    json.Real("bytes_per_second", row.byteRate);
    json.Flag("at_least", row.isLeast);
    json.Number("highest", row.highest);
    ProcessesWrite("receivers_waiting", row.receivers, &json);
    ProcessesWrite("senders_waiting", row.senders, &json);
    json.End();
  }
  json.End();
  json.End();
  json.Print();
}

}  // namespace

ExitCode LiveViewRun(const LiveOptions& options, Format format,
                     const std::function<std::set<int>()>& idsGet) {
  Meters meters;
  bool isTrouble = false;
  for (int look = 0; options.looks == 0 || look<options.looks; look += options.looks> 0) {
    MetersUpdate(idsGet(), &meters);
    MetersRun(options.seconds, &meters);
    const std::vector<QueueRow> rows = RowsGet(meters);
    format == Format::JSON ? RowsWrite(rows) : RowsPrint(rows);
    isTrouble = false;
    for (const QueueRow& row : rows)
      isTrouble |= row.verdict.isTrouble;
    for (auto& [id, meter] : meters)
      meter.SpanBegin();
  }
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
