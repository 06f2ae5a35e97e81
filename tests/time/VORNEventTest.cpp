#include "support/Faults.h"
#include "support/Results.h"
#include "time/VORNEventManager.h"

#include <algorithm>
#include <climits>
#include <random>

namespace {

using Time = VORNNtpTime;

Time Words(std::int32_t sec, std::uint32_t frac = 0) { return Time::FromWords(sec, frac); }

std::int64_t Joined(const Time& time) { return time.sec * (1LL << 32) + time.frac; }

const std::int64_t NEVER = Joined(Time::Infinite());

/// Each test draws the same numbers, alone as among the others.
struct Events : Scripted {
  std::mt19937 random{4711};

  int Pick(std::uint32_t below) { return static_cast<int>(random() % below); }
  Time TimePick() {  // mostly close together, some at the ends of the range
    constexpr std::int32_t SECONDS[] = {0, 1, 9, 10, 11, 12, INT_MIN, -1, INT_MAX};
    constexpr std::uint32_t FRACTIONS[] = {0, 1, 1U << 31, UINT32_MAX};
    const int second = Pick(9);
    return Words(SECONDS[second], FRACTIONS[Pick(4)]);
  }
};

struct Event : VORNEvent {
  explicit Event(const Time& start, const Time& period, int id = 0, int mode = EVENT_ENABLED)
      : VORNEvent(start, period, id, static_cast<Mode>(mode)) {}
  ~Event() override { deleted.push_back(_id); }
  using VORNEvent::_id;
  static inline std::vector<int> deleted;
};

struct Manager : VORNEventManager {
  using VORNEventManager::_reservedTime, VORNEventManager::VORNEventManager;
};

TEST_F(Events, ArmFireAndMoveTheirDeadlinesAsAModelDoes) {
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(round);
    const int id = Pick(9) - 5, mode = Pick(4) - 1;
    const Time start = TimePick();
    Time period = TimePick();
    Event event(start, period, id, mode);
    EXPECT_EQ(event._id, std::max(id, -1));
    bool enabled = mode == 1;
    std::int64_t deadline = Joined(start + period);
    for (int step = 0; step < 12; ++step) {
      const Time now = TimePick(), next = TimePick();
      const int operation = Pick(3), restart = Pick(3);
      bool accepted = enabled && Joined(now) >= deadline;
      if (operation == 0) {
        EXPECT_EQ(event.Fired(now), accepted) << step;
      } else if (operation == 1) {
        accepted = now.sec >= 0;
        enabled = enabled || accepted;
        EXPECT_EQ(event.Enable(now), accepted) << step;
      } else {
        accepted = Joined(next) > 0 && Joined(now) > 0;
        period = accepted ? next : period;
        EXPECT_EQ(event.PeriodSet(next, now, restart), accepted) << step;
      }
      const std::int64_t candidate = Joined(now + period);
      if (accepted && (operation != 2 || restart != 0 || candidate < deadline))
        deadline = candidate;
      EXPECT_EQ(Joined(event.DeadlineGet()), enabled ? deadline : NEVER) << step;
      EXPECT_EQ(event.IsValid(), std::min(deadline, Joined(period)) >= 0) << step;
    }
  }
}

TEST_F(Events, AreHeldOnePerIdentifierAndDeletedInOrderIfOwnedAndStillHeld) {
  EXPECT_EQ(FaultsTry([] { return VORNEventManager(4, 5, 1).IsValid(); }), "memory");
  for (const int owns : {0, 1, -3}) {
    std::vector<Event*> events;
    {
      Manager manager(4, 5, owns);
      EXPECT_EQ(manager._reservedTime, Words(0, 858993459));
      EXPECT_EQ(manager.EventAdd(nullptr), 0);
      for (const int id : {3, 0, 2, 3, 4, -1}) {
        events.push_back(new Event(Words(0), Words(-1), id, id));
        EXPECT_EQ(manager.EventAdd(events.back()), events.size() <= 3) << id;
      }
      EXPECT_EQ(manager.EventFind(0), events[1]);
      EXPECT_EQ(manager.EventRemove(2), events[2]);
      for (const int id : {1, 2, 4, 9, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(manager.EventFind(id), nullptr) << id;
        EXPECT_EQ(manager.EventRemove(id), nullptr) << id;
      }
      Event::deleted.clear();
    }
    EXPECT_EQ(Event::deleted, owns != 0 ? std::vector<int>({0, 3}) : std::vector<int>());
    for (std::size_t i = owns != 0 ? 2 : 0; i < events.size(); ++i)
      delete events[i];
  }
}

TEST_F(Events, AreRefusedByAManagerWithoutATable) {
  Event event(Words(0), Words(0));
  for (const int size : {4, -1, INT_MIN}) {
    System().failingStep = 1;
    VORNEventManager manager(size, 5, 1);
    ResultsExpect(0, {{"valid", manager.IsValid()}, {"add", manager.EventAdd(&event)}});
    EXPECT_EQ(manager.EventFind(0), nullptr);
    EXPECT_EQ(manager.EventRemove(0), nullptr);
    EXPECT_EQ(manager.SleepTimeMinGet(Words(9)), Words(5));
  }
}

TEST_F(Events, EndASleepAtTheEarliestEnabledDeadlineWithinTheMaximum) {
  for (int round = 0; round < 4000; ++round) {
    SCOPED_TRACE(round);
    const int size = Pick(5), maximum = Pick(4);
    VORNEventManager manager(size, maximum, 1);
    std::int64_t earliest = NEVER;
    for (int id = 0; id < size; ++id) {
      const Time deadline = TimePick();
      const int mode = Pick(3);
      if (mode == 1)
        earliest = std::min(earliest, Joined(deadline));
      EXPECT_EQ(manager.EventAdd(new Event(deadline, Words(0), id, mode)), 1);
    }
    const Time now = TimePick();
    std::int64_t sleep;
    __builtin_sub_overflow(earliest, Joined(now), &sleep);  // wraps
    EXPECT_EQ(Joined(manager.SleepTimeMinGet(now)),
              std::clamp<std::int64_t>(sleep, 0, maximum * (1LL << 32)));
  }
}

}  // namespace
