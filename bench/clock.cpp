// Every thread reads one clock. With more threads than processors, a reading costs as much of a
// processor as with as many; so the time is that of a processor.

#include "targets.h"

#include "platform/KelNtpTime.h"
#include "support/Timed.h"
#include "time/VORNClock.h"

#include <latch>
#include <memory>
#include <mutex>
#include <thread>

namespace {

struct Span {
  double begin;
  double end;
};

// From the first thread's first reading to the last thread's last one.
double SpanGet(const std::vector<Span>& spans) {
  Span all = spans.front();
  for (const Span& span : spans)
    all = {std::min(all.begin, span.begin), std::max(all.end, span.end)};
  return all.end - all.begin;
}

// Nanoseconds of a processor for each of `count` readings by each of `threads`.
template <typename Read> double ThreadsRun(Read& read, int threads, long count) {
  std::latch ready(threads);
  std::vector<Span> spans(static_cast<std::size_t>(threads));
  std::vector<std::thread> running;
  running.reserve(spans.size());
  for (Span& span : spans)
    running.emplace_back([&] {
      ready.arrive_and_wait();
      span.begin = SecondsNow();
      for (long k = 0; k < count; ++k)
        Keep(read());
      span.end = SecondsNow();
    });
  for (std::thread& thread : running)
    thread.join();
  const int processors = std::min(static_cast<int>(std::thread::hardware_concurrency()), threads);
  return SpanGet(spans) * 1e9 * processors / (static_cast<double>(count) * threads);
}

template <typename Read> std::function<Measure()> Threads(Read read, int threads) {
  return [=] {
    return [read, threads, count = 1000L](double seconds) mutable -> Values {
      const double each = ThreadsRun(read, threads, count);
      // At the start a thread can end before the next one begins, and the span tells little.
      const double elapsed = each * static_cast<double>(count) * 1e-9;
      count = std::clamp(CountNext(count, elapsed, seconds), 1000L, 10'000'000L);
      return {each};
    };
  };
}

KELNtpTime LowerLayerRead() {
  KELNtpTime time;
  KelNtpTimeGet(&time);
  return time;
}

// What the clock's interface costs: a virtual call, and in it one of the lower layer.
class ForwardingClock : public VORNClockClass {
public:
  void TimeGet(KELNtpTime* time) override { KelNtpTimeGet(time); }
  int IsValid() const override { return 1; }
};

timespec SystemRead() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

// The same promise, kept the plain way: every reading under a lock.
KELNtpTime LockedRead() {
  static std::mutex mutex;
  static KELNtpTime last, offset;
  const std::lock_guard guard(mutex);
  KELNtpTime time = LowerLayerRead();
  time.sec += offset.sec;
  if (time.sec < last.sec)
    offset.sec += 1;
  last = time;
  return time;
}

}  // namespace

void ClockBench(Runner& runner) {
  const auto reader = [](const std::shared_ptr<VORNClockClass>& clock) {
    return [clock] {
      KELNtpTime time;
      Unknown(clock.get())->TimeGet(&time);
      return time;
    };
  };
  const auto read = reader(std::make_shared<VORNClock>());
  const auto forward = reader(std::make_shared<ForwardingClock>());
  for (int threads = 1; threads <= 8; threads *= runner.IsQuick() ? 8 : 2) {
    Case subject{"clock", "threads", threads};
    subject.effort = 2;
    subject.Add("library", Role::LIBRARY, Threads(read, threads));
    subject.Add("floor", Role::FLOOR, Threads(SystemRead, threads));
    subject.Add("lower layer", Role::PEER, Threads(LowerLayerRead, threads));
    subject.Add("virtual call of it", Role::PEER, Threads(forward, threads));
    subject.Add("under a mutex", Role::PEER, Threads(LockedRead, threads));
    runner.Run(subject);
  }
}
