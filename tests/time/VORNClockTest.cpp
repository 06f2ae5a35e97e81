#include "time/VORNClock.h"

#include "platform/KelMutex.h"
#include "support/Scripted.h"
#include "time/VORNNtpTime.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <list>
#include <thread>

namespace {

struct ClockProbe : VORNClock {
  using VORNClock::_clockMutex;
  using VORNClock::_generation;
  using VORNClock::_offset;
};

/// A clock over a lower layer that wraps from 16 s to 0.
struct Clock : Scripted {
  int wrap = Script().rollover.sec = 16;
  ClockProbe clock;  // made under the script

  std::int32_t SecondsGet() {
    KELNtpTime time;
    clock.TimeGet(&time);
    return time.sec;
  }
  std::int32_t SecondsAt(std::int32_t reading) {
    Script().clock = [reading] { return KELNtpTime{reading, 0}; };
    return SecondsGet();
  }
};

TEST_F(Clock, GoesOnThroughEveryWrapAndLocksOnlyToCorrect) {
  // clang-format off
  struct Row { std::int32_t reading, result, offset; std::uint32_t generation; };
  for (const Row& row : {Row{10, 10, 0, 0}, {11, 11, 0, 0}, {2, 18, 16, 1}, {3, 19, 16, 1}, {15, 31, 16, 1}, {15, 31, 16, 1},
                         {0, 32, 32, 2}, {15, 47, 32, 2}, {1, 49, 48, 3}}) {
    // clang-format on
    EXPECT_EQ(SecondsAt(row.reading), row.result) << row.reading;
    EXPECT_EQ(clock._offset.sec, row.offset) << row.reading;
    EXPECT_EQ(clock._generation, row.generation) << row.reading;
    EXPECT_EQ(Script().mutexTakes, static_cast<int>(row.generation)) << row.reading;
    EXPECT_EQ(Script().mutexGives, Script().mutexTakes);
  }
  clock.TimeGet(nullptr);
  EXPECT_EQ(Script().clockReadings, 9);
  // After the last generation the count starts anew: the mark would make readers wait for ever.
  clock._generation = UINT32_MAX - 1;
  EXPECT_EQ(SecondsAt(9), 57);
  EXPECT_EQ(SecondsAt(0), 64);
  EXPECT_EQ(SecondsAt(1), 65);
  EXPECT_EQ(clock._generation, 0U);
  EXPECT_EQ(clock.IsValid(), 1);
  Script().mutexNewFails = true;
  EXPECT_EQ(VORNClock().IsValid(), 0);
}

TEST_F(Clock, ReadsAgainWhenACorrectionFallsIntoTheReading) {
  SecondsAt(11);
  // The outer reading gets 15 from the lower layer, but before it adds the offset another reader
  // meets the wrap. With the new offset, 15 would become 31.
  int depth = 0;
  Script().clock = [&] {
    if (depth++ > 0)
      return KELNtpTime{depth, 0};  // 2 for the other reader, then 3
    EXPECT_EQ(SecondsGet(), 18);
    return KELNtpTime{15, 0};
  };
  EXPECT_EQ(SecondsGet(), 19);
  EXPECT_EQ(clock._offset.sec, 16);
  EXPECT_EQ(Script().mutexTakes, 2);  // one to correct, one to wait for the correction's end
}

TEST_F(Clock, ReadersWaitForACorrectionInProgressAndCorrectOneWrapOnce) {
  // clang-format off
  struct Row { std::uint32_t found, left; std::int32_t reading, offset, result; };  // generations first
  // clang-format on
  for (const Row& row : {Row{UINT32_MAX, 1, 5, 16, 21}, {1, 1, 2, 16, 34}}) {
    Script().clock = [&row] { return KELNtpTime{row.reading, 0}; };
    Script().mutexTakes = 0;
    KelMutexTake(clock._clockMutex);
    clock._generation = row.found;
    {
      std::list<std::jthread> readers;
      for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] { EXPECT_EQ(SecondsGet(), row.result); });
      // Until each has found the mark, or the wrap under the same generation; at most 20 seconds.
      for (int i = 0; i < 20000 && Script().mutexTakes < 4; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      EXPECT_EQ(Script().mutexTakes, 4);
      clock._offset.sec = row.offset;
      clock._generation = row.left;
      KelMutexGive(clock._clockMutex);
    }
  }
  EXPECT_EQ(clock._offset.sec, 32);
  EXPECT_EQ(clock._generation, 2U);
}

// The lower clock wraps in the middle of every second phase. The threads meet between phases, so
// that none sleeps within a reading for a whole turn of the clock: its wrap could not be seen.
TEST_F(Clock, NeverRunsBackwardsUnderManyThreads) {
  constexpr int THREADS = 4, READINGS = 400, PHASES = 60;
  constexpr std::int64_t PHASE = 8LL << 32, STEPS = 2LL * THREADS * READINGS;
  std::atomic<int> readings{0}, phase{0}, falls{0};
  Script().clock = [&] {
    const std::int64_t step = std::min<std::int64_t>(readings++, STEPS - 1);
    const std::int64_t now = phase * PHASE + (6LL << 32) + step * (PHASE / STEPS);
    return KELNtpTime{static_cast<std::int32_t>((now >> 32) % 16), static_cast<std::uint32_t>(now)};
  };
  std::barrier meeting(THREADS, [&]() noexcept {
    readings = 0;
    ++phase;
  });
  const auto read = [&] {
    VORNNtpTime before;
    for (int reading = 1; reading <= PHASES * READINGS; ++reading) {
      KELNtpTime time;
      clock.TimeGet(&time);
      const VORNNtpTime now = VORNNtpTime::FromKelTime(time);
      falls += now < before ? 1 : 0;
      before = now;
      if (reading % READINGS == 0)
        meeting.arrive_and_wait();
    }
  };
  {
    std::list<std::jthread> threads;
    for (int i = 0; i < THREADS; ++i)
      threads.emplace_back(read);
  }
  EXPECT_EQ(falls, 0);
  EXPECT_EQ(clock._offset.sec, PHASES / 2 * 16);
}

}  // namespace
