// A step of a waiting loop: the event that is due fires, and the next deadline is asked for. All
// events have the same period, so they fire in turn.

#include "targets.h"

#include "floors.h"
#include "support/Timed.h"
#include "time/VORNEventManager.h"

#include <map>
#include <memory>
#include <queue>

namespace {

// Seconds; more than the most slots, so that no two events are due at once.
constexpr std::int32_t PERIOD = 10'000;
constexpr std::int64_t SECOND = std::int64_t{1} << 32;

// The time of the next step: one second later, and back to the start before it overflows.
std::int32_t StepNext(std::int32_t now) { return now + 1 < INT32_MAX - PERIOD ? now + 1 : PERIOD; }

Measure LibrarySleep(int slots) {
  const auto manager = std::make_shared<VORNEventManager>(slots, PERIOD, 1);
  for (int id = 0; id < slots; ++id)
    manager->EventAdd(new VORNEvent(VORNNtpTime::FromWords(id, 0),
                                    VORNNtpTime::FromWords(PERIOD, 0), id,
                                    VORNEvent::EVENT_ENABLED));
  return Timed([manager, slots, now = PERIOD]() mutable {
    manager->EventFind(now % slots)->Fired(VORNNtpTime::FromWords(now, 0));
    const VORNNtpTime sleep = manager->SleepTimeMinGet(VORNNtpTime::FromWords(now, 0));
    now = StepNext(now);
    return sleep.sec;
  });
}

// The events lie apart, as the library's do: a program makes each on its own.
struct Timers {
  std::vector<std::unique_ptr<floors::Timer>> owned;
  std::vector<floors::Timer*> table;
};

Measure FloorSleep(int slots) {
  const auto timers = std::make_shared<Timers>();
  timers->owned.reserve(static_cast<std::size_t>(slots));
  timers->table.reserve(static_cast<std::size_t>(slots));
  for (int id = 0; id < slots; ++id) {
    timers->owned.push_back(
        std::make_unique<floors::Timer>(floors::Timer{1, (id + PERIOD) * SECOND, PERIOD * SECOND}));
    timers->table.push_back(timers->owned.back().get());
  }
  return Timed([timers, slots, step = PERIOD]() mutable {
    const std::int64_t now = step * SECOND;
    floors::Timer& due = *timers->table[static_cast<std::size_t>(step % slots)];
    if (now >= due.deadline)
      due.deadline = now + due.period;
    step = StepNext(step);
    return floors::SleepGet(timers->table, now, due.period);
  });
}

Measure QueueSleep(int slots) {
  using Entry = std::pair<std::int64_t, int>;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> queue;
  for (int id = 0; id < slots; ++id)
    queue.emplace(id, id);
  return Timed([queue]() mutable {
    const auto [deadline, id] = queue.top();
    queue.pop();
    queue.emplace(deadline + PERIOD, id);
    return queue.top().first - deadline;
  });
}

Measure MapSleep(int slots) {
  std::multimap<std::int64_t, int> map;
  for (int id = 0; id < slots; ++id)
    map.emplace(id, id);
  return Timed([map]() mutable {
    auto node = map.extract(map.begin());
    const std::int64_t deadline = node.key();
    node.key() += PERIOD;
    map.insert(std::move(node));
    return map.begin()->first - deadline;
  });
}

}  // namespace

void EventsBench(Runner& runner) {
  for (const int slots : {8, 64, 512, 4096}) {
    Case subject{"next deadline", "slots", slots};
    subject.Add("library", Role::LIBRARY, [=] { return LibrarySleep(slots); });
    subject.Add("floor", Role::FLOOR, [=] { return FloorSleep(slots); });
    subject.Add("priority_queue", Role::PEER, [=] { return QueueSleep(slots); });
    subject.Add("multimap", Role::PEER, [=] { return MapSleep(slots); });
    runner.Run(subject);
  }
}
