#include "platform/KelNtpTime.h"
#include "time/VORNClock.h"
#include "time/VORNEventManager.h"

#include <benchmark/benchmark.h>

#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <queue>
#include <vector>

namespace {

void ClockLibrary(benchmark::State& state) {
  static VORNClock clock;
  KELNtpTime time;
  for (auto _ : state) {
    clock.TimeGet(&time);
    benchmark::DoNotOptimize(time);
  }
}

void ClockFloor(benchmark::State& state) {
  KELNtpTime time;
  for (auto _ : state) {
    KelNtpTimeGet(&time);
    benchmark::DoNotOptimize(time);
  }
}

void ClockSystem(benchmark::State& state) {
  timespec time;
  for (auto _ : state) {
    clock_gettime(CLOCK_MONOTONIC, &time);
    benchmark::DoNotOptimize(time);
  }
}

// The same promise, kept the plain way: every reading under the lock.
void ClockMutex(benchmark::State& state) {
  static std::mutex mutex;
  static KELNtpTime last, offset;
  KELNtpTime time;
  for (auto _ : state) {
    const std::lock_guard guard(mutex);
    KelNtpTimeGet(&time);
    time.sec += offset.sec;
    if (time.sec < last.sec)
      offset.sec += 1;
    last = time;
    benchmark::DoNotOptimize(time);
  }
}

// A step of a waiting loop: the event that is due fires, and the next deadline is asked for. All
// events have the same period, so they fire in turn.
constexpr std::int32_t PERIOD = 1000;

void SleepLibrary(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  VORNEventManager manager(count, PERIOD, 1);
  for (int id = 0; id < count; ++id)
    manager.EventAdd(new VORNEvent(VORNNtpTime::FromWords(id, 0), VORNNtpTime::FromWords(PERIOD, 0),
                                   id, VORNEvent::EVENT_ENABLED));
  std::int32_t now = PERIOD;
  for (auto _ : state) {
    manager.EventFind(now % count)->Fired(VORNNtpTime::FromWords(now, 0));
    benchmark::DoNotOptimize(manager.SleepTimeMinGet(VORNNtpTime::FromWords(now, 0)));
    now = now + 1 < INT32_MAX - PERIOD ? now + 1 : PERIOD;
  }
}

void SleepQueue(benchmark::State& state) {
  using Entry = std::pair<std::int64_t, int>;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> queue;
  for (int id = 0; id < state.range(0); ++id)
    queue.emplace(id, id);
  for (auto _ : state) {
    const auto [deadline, id] = queue.top();
    queue.pop();
    queue.emplace(deadline + PERIOD, id);
    benchmark::DoNotOptimize(queue.top().first - deadline);
  }
}

void SleepMap(benchmark::State& state) {
  std::multimap<std::int64_t, int> map;
  for (int id = 0; id < state.range(0); ++id)
    map.emplace(id, id);
  for (auto _ : state) {
    auto node = map.extract(map.begin());
    const std::int64_t deadline = node.key();
    node.key() += PERIOD;
    map.insert(std::move(node));
    benchmark::DoNotOptimize(map.begin()->first - deadline);
  }
}

}  // namespace

BENCHMARK(ClockLibrary)->Name("clock/library")->ThreadRange(1, 2);
BENCHMARK(ClockFloor)->Name("clock/lower layer")->ThreadRange(1, 2);
BENCHMARK(ClockSystem)->Name("clock/clock_gettime")->ThreadRange(1, 2);
BENCHMARK(ClockMutex)->Name("clock/mutex")->ThreadRange(1, 2);
BENCHMARK(SleepLibrary)->Name("next deadline/library")->RangeMultiplier(8)->Range(8, 512);
BENCHMARK(SleepQueue)->Name("next deadline/priority_queue")->RangeMultiplier(8)->Range(8, 512);
BENCHMARK(SleepMap)->Name("next deadline/multimap")->RangeMultiplier(8)->Range(8, 512);

BENCHMARK_MAIN();
