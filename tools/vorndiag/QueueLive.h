#ifndef VORNDIAG_QUEUE_LIVE_H
#define VORNDIAG_QUEUE_LIVE_H

#include "vorndiag/QueueWatch.h"
#include "vorndiag/Waiters.h"

#include <chrono>

/// A queue over time.

/// What was sent between two looks.
struct QueueTraffic {
  std::int64_t messages = 0;
  std::int64_t bytes = 0;  ///< of the messages, without the lengths between them
  bool isLeast = false;    ///< it may be more
};

/// What was sent between `before` and `after`, which was asked for what lies since `before`. The
/// ring alone cannot tell once round from not at all. So a distance of more than half a ring, or
/// one that is not made of whole messages, counts as the least that it can be. A pure function.
QueueTraffic QueueTrafficGet(const SegmentLook& before, const SegmentLook& after);

/// One queue in a live view: looked at often, shown from time to time.
class QueueMeter {
public:
  explicit QueueMeter(int id);

  /// Looks once and counts.
  void Look();
  /// Begins the next span after what was counted so far has been shown.
  void SpanBegin();

  /// The first look of the span and the last one.
  const QueueWatch& WatchGet() const { return _watch; }
  /// Of the span: wrong is only what was wrong at each look in it.
  const Verdict& VerdictLast() const { return _verdict; }
  const QueueTraffic& TrafficGet() const { return _traffic; }
  double SecondsGet() const;
  /// Most bytes in use at any look since the first.
  int HighestGet() const { return _highest; }

private:
  void Count(const QueueLook& look);

  QueueWatch _watch;
  Verdict _verdict;
  QueueTraffic _traffic;
  int _highest = 0;
  std::chrono::steady_clock::time_point _begin;
  std::chrono::steady_clock::time_point _end;
};

/// A queue as a live view shows it.
struct QueueRow {
  QueueWatch watch;
  Verdict verdict;
  double messageRate = 0;  ///< sent in a second
  double byteRate = 0;
  bool isLeast = false;  ///< the rates may be higher
  int highest = 0;
  std::vector<Process> receivers;  ///< those of the waiting that can be seen
  std::vector<Process> senders;
};

QueueRow QueueRowGet(const QueueMeter& meter, const std::map<int, std::vector<Process>>& waiters);

#endif
