#include "vorndiag/QueueLive.h"

#include <algorithm>

namespace {

int UsedGet(const SegmentLook& segment) {
  return segment.offsets ? RingUsedGet(*segment.offsets, segment.capacity) : 0;
}

std::vector<Process> WaitersOf(const SetLook& set,
                               const std::map<int, std::vector<Process>>& waiters) {
  const auto found = waiters.find(set.id);
  return set.Exists() && set.waiting > 0 && found != waiters.end() ? found->second
                                                                   : std::vector<Process>();
}

}  // namespace

QueueTraffic QueueTrafficGet(const SegmentLook& before, const SegmentLook& after) {
  QueueTraffic traffic;
  if (!before.offsets || !after.offsets || before.id != after.id ||
      before.capacity != after.capacity)
    return traffic;
  const int distance = RingUsedGet({after.offsets->write, before.offsets->write}, after.capacity);
  traffic.messages = after.written.count;
  traffic.isLeast = after.written.isDamaged || distance > after.capacity / 2;
  const std::int64_t lengths = traffic.messages * MESSAGE_LENGTH_SIZE;
  traffic.bytes = std::max<std::int64_t>(distance - lengths, 0);
  return traffic;
}

QueueMeter::QueueMeter(int id) : _watch(QueueWatchBegin(id)) {
  _highest = UsedGet(_watch.after.segment);
  _begin = _end = std::chrono::steady_clock::now();
  SpanBegin();
}

void QueueMeter::SpanBegin() {
  _watch.before = _watch.after;
  _verdict = VerdictGet(_watch);
  _traffic = {};
  _begin = _end;
}

void QueueMeter::Look() {
  const std::optional<RingOffsets>& offsets = _watch.after.segment.offsets;
  const QueueLook look =
      QueueLookGet(_watch.id, offsets ? std::optional(offsets->write) : std::nullopt);
  _end = std::chrono::steady_clock::now();
  Count(look);
  _watch.after = look;
  if (_verdict.isTrouble)
    _verdict = VerdictGet(_watch);
}

void QueueMeter::Count(const QueueLook& look) {
  const QueueTraffic more = QueueTrafficGet(_watch.after.segment, look.segment);
  _traffic.messages += more.messages;
  _traffic.bytes += more.bytes;
  _traffic.isLeast |= more.isLeast;
  _highest = std::max(_highest, UsedGet(look.segment));
}

double QueueMeter::SecondsGet() const {
  return std::chrono::duration<double>(_end - _begin).count();
}

QueueRow QueueRowGet(const QueueMeter& meter, const std::map<int, std::vector<Process>>& waiters) {
  QueueRow row;
  const double seconds = std::max(meter.SecondsGet(), 0.001);
  row.watch = meter.WatchGet();
  row.verdict = meter.VerdictLast();
  row.messageRate = static_cast<double>(meter.TrafficGet().messages) / seconds;
  row.byteRate = static_cast<double>(meter.TrafficGet().bytes) / seconds;
  row.isLeast = meter.TrafficGet().isLeast;
  row.highest = meter.HighestGet();
  row.receivers = WaitersOf(row.watch.after.semaphore, waiters);
  row.senders = WaitersOf(row.watch.after.mutex, waiters);
  return row;
}
