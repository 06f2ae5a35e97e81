#include "support/ScriptedSystem.h"
#include "time/VORNEventManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <vector>

namespace {

using Time = VORNNtpTime;

const Time NEVER = Time::Infinite();

Time Words(std::int32_t sec, std::uint32_t frac = 0) { return Time::FromWords(sec, frac); }

struct Event : VORNEvent {
  explicit Event(const Time& start, const Time& period, int id = 0, int mode = EVENT_ENABLED)
      : VORNEvent(start, period, id, static_cast<Mode>(mode)) {}
  ~Event() override {
    if (deleted != nullptr)
      deleted->push_back(_id);
  }
  using VORNEvent::_id;
  std::vector<int>* deleted = nullptr;
};

TEST(VORNEvent, StoresNoIdentifierBelowMinusOneAndSaysWhetherItsTimesAreNegative) {
  for (const int id : {-7, INT_MIN, -1, 0, 9})
    EXPECT_EQ(Event(Words(0), Words(1), id)._id, std::max(id, -1));
  for (const int mode : {0, 1}) {
    EXPECT_EQ(Event(Words(0), Words(0), -1, mode).IsValid(), 1);
    EXPECT_EQ(Event(Words(-5), Words(5), -1, mode).IsValid(), 1);
    EXPECT_EQ(Event(Words(-6), Words(5, 9), -1, mode).IsValid(), 0);  // deadline
    EXPECT_EQ(Event(Words(9), Words(-1, 9), -1, mode).IsValid(), 0);  // period
  }
}

TEST(VORNEvent, FollowsItsRulesStepByStep) {
  struct Step {
    char operation;  // Fired, Enable, PeriodSet
    Time now;
    int result;
    Time deadline;
    Time period = {};
    int restart = 0;
  };
  const std::vector<Step> steps = {{'F', NEVER, 0, NEVER},
                                   {'P', Words(4), 1, NEVER, Words(5), 1},
                                   {'E', Words(10), 1, Words(15)},
                                   {'F', Words(14, UINT32_MAX), 0, Words(15)},
                                   {'F', Words(15), 1, Words(20)},
                                   {'F', Words(15), 0, Words(20)},
                                   {'F', Words(27, 3), 1, Words(32, 3)},
                                   {'E', Words(-1, UINT32_MAX), 0, Words(32, 3)},
                                   {'E', Words(15), 1, Words(20)},
                                   {'P', Words(15), 0, Words(20), Words(0), 1},
                                   {'P', Words(0), 0, Words(20), Words(2), 1},
                                   {'P', Words(15), 0, Words(20), Words(-1, 9), 1},
                                   {'E', Words(15), 1, Words(20)},
                                   {'P', Words(15), 1, Words(20), Words(10)},
                                   {'P', Words(15), 1, Words(17), Words(2)},
                                   {'P', Words(15), 1, Words(25), Words(10), 7},
                                   {'F', Words(25), 1, Words(35)},
                                   {'E', Words(0), 1, Words(10)},
                                   {'P', Words(1), 1, NEVER, NEVER, 1},
                                   {'F', Words(INT_MAX, 9), 0, NEVER},
                                   {'P', Words(0, 1), 1, Words(0, 2), Words(0, 1)}};
  for (const int mode : {0, 2, -1}) {
    Event event(Words(1), Words(1), 0, mode);
    for (const Step& step : steps) {
      SCOPED_TRACE(&step - steps.data());
      EXPECT_EQ(step.operation == 'F'   ? event.Fired(step.now)
                : step.operation == 'E' ? event.Enable(step.now)
                                        : event.PeriodSet(step.period, step.now, step.restart),
                step.result);
      EXPECT_EQ(event.DeadlineGet(), step.deadline);
    }
  }
  Event always(Words(3), Words(0));
  EXPECT_EQ(always.Fired(Words(8)) + always.Fired(Words(8)), 2);
}

TEST(VORNEventManager, HoldsOneEventPerIdentifierAndDeletesInOrderWhatItOwnsAndStillHolds) {
  for (const int owns : {0, 1, -3}) {
    std::vector<int> deleted;
    std::vector<Event*> events;
    for (const int id : {3, 0, 2, 3, 4, -1}) {
      events.push_back(new Event(Words(0), Words(-1), id, id));
      events.back()->deleted = &deleted;
    }
    SystemReset();
    {
      VORNEventManager manager(4, 5, owns);
      EXPECT_EQ(manager.IsValid(), 1);
      for (std::size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(manager.EventAdd(events[i]), i < 3 ? 1 : 0) << i;
      EXPECT_EQ(manager.EventAdd(nullptr), 0);
      EXPECT_EQ(manager.EventFind(0), events[1]);
      EXPECT_EQ(manager.EventRemove(2), events[2]);
      for (const int id : {1, 2, 4, 9, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(manager.EventFind(id), nullptr) << id;
        EXPECT_EQ(manager.EventRemove(id), nullptr) << id;
      }
      manager.SleepTimeMinGet(Words(1));
      EXPECT_EQ(System().allocations, 1);  // the table
    }
    EXPECT_EQ(deleted, owns != 0 ? std::vector<int>({0, 3}) : std::vector<int>());
    for (std::size_t i = owns != 0 ? 2 : 0; i < events.size(); ++i)
      delete events[i];
  }
}

TEST(VORNEventManager, WithoutATableRefusesEverything) {
  for (const int size : {4, -1, INT_MIN}) {
    SystemReset();
    System().failingAllocation = 1;
    Event event(Words(0), Words(0));
    VORNEventManager manager(size, 5, 1);
    EXPECT_EQ(manager.IsValid() + manager.EventAdd(&event), 0);
    EXPECT_EQ(manager.EventFind(0), nullptr);
    EXPECT_EQ(manager.EventRemove(0), nullptr);
    EXPECT_EQ(manager.SleepTimeMinGet(Words(9)), Words(5));
  }
  SystemReset();
}

TEST(VORNEventManager, SleepsUntilTheEarliestEnabledDeadlineWithinTheMaximum) {
  const auto joined = [](const Time& time) { return time.sec * (1LL << 32) + time.frac; };
  std::mt19937 random(4711);
  const auto pick = [&](std::uint32_t below) { return static_cast<int>(random() % below); };
  const auto time = [&] {  // mostly close together, some at the ends of the range
    constexpr std::int32_t SECONDS[] = {9, 10, 11, 12, 13, INT_MIN, -1, INT_MAX};
    return Words(SECONDS[pick(8)], static_cast<std::uint32_t>(pick(4)) << 30);
  };
  for (int round = 0; round < 20000; ++round) {
    const int size = pick(5), maximum = pick(4);
    VORNEventManager manager(size, maximum, 1);
    long long earliest = joined(NEVER);
    for (int id = 0; id < size; ++id) {
      const Time deadline = time();
      const int mode = pick(3);
      if (mode == 1)
        earliest = std::min(earliest, joined(deadline));
      EXPECT_EQ(manager.EventAdd(new Event(deadline, Words(0), id, mode)), 1);
    }
    const Time now = time();
    const auto sleep = static_cast<long long>(static_cast<unsigned long long>(earliest) -
                                              static_cast<unsigned long long>(joined(now)));
    EXPECT_EQ(joined(manager.SleepTimeMinGet(now)), std::clamp(sleep, 0LL, maximum * (1LL << 32)));
  }
}

}  // namespace
