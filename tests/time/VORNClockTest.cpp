#include "time/VORNClock.h"

#include "platform/KelMutex.h"
#include "support/Emulator.h"
#include "support/Faults.h"
#include "time/VORNNtpTime.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <list>
#include <new>
#include <thread>
#include <tuple>

#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct ClockProbe : VORNClock {
  using VORNClock::_clockMutex;
  using VORNClock::_generation;
  using VORNClock::_lastSeconds;
  using VORNClock::_offset;
};

double Seconds(const KELNtpTime& time) { return VORNNtpTime::FromKelTime(time).SecondsGet(); }

/// A clock over a lower layer that says that it falls by 16.5 s when it wraps.
struct Clock : Scripted {
  KELNtpTime wrap = Script().rollover = {16, 1U << 31};
  ClockProbe clock;  // made under the script

  double SecondsGet() {
    KELNtpTime time;
    clock.TimeGet(&time);
    return Seconds(time);
  }
  double SecondsAt(double reading) {
    Script().clock = [reading] { return VORNNtpTime::FromSeconds(reading).KelTimeGet(); };
    return SecondsGet();
  }
};

TEST_F(Clock, GoesOnThroughEveryWrapAndLocksOnlyToCorrect) {
  // clang-format off
  struct Row { double reading, result, offset; std::uint32_t corrections; };
  for (const Row& row : {Row{10, 10, 0, 0},
                         {11, 11, 0, 0},
                         {2.25, 18.75, 16.5, 1},
                         {3, 19.5, 16.5, 1},
                         {15, 31.5, 16.5, 1},
                         {15, 31.5, 16.5, 1},
                         {0, 33, 33, 2},
                         {15.5, 48.5, 33, 2},
                         {1, 50.5, 49.5, 3}}) {
    // clang-format on
    EXPECT_EQ(SecondsAt(row.reading), row.result) << row.reading;
    EXPECT_EQ(Seconds(clock._offset), row.offset) << row.reading;
    EXPECT_EQ(clock._generation, row.corrections) << row.reading;
    EXPECT_EQ(Script().mutexTakes, static_cast<int>(row.corrections)) << row.reading;
    EXPECT_EQ(Script().mutexGives, Script().mutexTakes) << row.reading;
  }
  clock.TimeGet(nullptr);
  EXPECT_EQ(Script().clockReadings, 9);
  // After the last generation the count starts anew: the mark would make readers wait for ever.
  clock._generation = UINT32_MAX - 1;
  EXPECT_EQ(SecondsAt(9), 58.5);
  EXPECT_EQ(SecondsAt(0), 66);
  EXPECT_EQ(SecondsAt(1), 67);
  EXPECT_EQ(clock._generation, 0U);
  EXPECT_EQ(FaultsTry([] { return VORNClock().IsValid(); }), "KelMutexNew");
  EXPECT_EQ(Script().mutexes, 1);
}

TEST_F(Clock, ReadsAgainWhenACorrectionFallsIntoTheReading) {
  SecondsAt(11);
  // The outer reading gets 15 from the lower layer, but before it adds the offset another reader
  // meets the wrap. With the new offset, 15 would become 31.5.
  int depth = 0;
  Script().clock = [&] {
    if (depth++ > 0)
      return KELNtpTime{depth, 0};  // 2 for the other reader, then 3
    EXPECT_EQ(SecondsGet(), 18.5);
    return KELNtpTime{15, 0};
  };
  EXPECT_EQ(SecondsGet(), 19.5);
  EXPECT_EQ(Seconds(clock._offset), 16.5);
  EXPECT_EQ(Script().mutexTakes, 2);  // one to correct, one to wait for the correction's end
}

TEST_F(Clock, TakesNoReaderThatIsAheadForAWrap) {
  int depth = 0;
  Script().clock = [&] {
    if (depth++ > 0)
      return KELNtpTime{5, 0};
    EXPECT_EQ(SecondsGet(), 5);
    return KELNtpTime{4, 0};
  };
  EXPECT_EQ(SecondsGet(), 4);
}

// A traced process corrects a clock in shared memory, one instruction after the other.
TEST_F(Clock, ACorrectionSetsItsMarkFirstAndTheNextGenerationLast) {
  SKIP_UNDER_EMULATOR("ptrace");
#ifdef VORN_TEST_SANITIZER
  GTEST_SKIP() << "a sanitizer's own code would be stepped through";
#endif
  void* const room =
      mmap(nullptr, sizeof clock, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(room, MAP_FAILED);
  auto* const shared = new (room) ClockProbe;
  shared->_lastSeconds = 11;
  const pid_t reader = fork();
  if (reader == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0)
      shared->TimeGet(&wrap);
    _exit(0);
  }
  using Seen = std::tuple<std::uint32_t, std::int32_t, double>;  // generation, seconds, offset
  std::vector<Seen> all;
  int status = 0;
  while (waitpid(reader, &status, 0) == reader && WIFSTOPPED(status)) {
    const Seen now{shared->_generation, shared->_lastSeconds, Seconds(shared->_offset)};
    if (all.empty() || all.back() != now)
      all.push_back(now);
    if (ptrace(PTRACE_SINGLESTEP, reader, nullptr, nullptr) != 0)
      kill(reader, SIGKILL);
  }
  shared->~ClockProbe();
  munmap(room, sizeof clock);
  if (all.size() < 2)
    GTEST_SKIP() << "no single steps here";
  constexpr std::uint32_t MARK = UINT32_MAX;
  EXPECT_EQ(
      all,
      (std::vector<Seen>{
          {0, 11, 0}, {MARK, 11, 0}, {MARK, 0, 0}, {MARK, 0, 16}, {MARK, 0, 16.5}, {1, 0, 16.5}}));
}

TEST_F(Clock, ReadersWaitForACorrectionInProgressAndCorrectOneWrapOnce) {
  // clang-format off
  struct Row { std::uint32_t found, left; std::int32_t reading, offset; double result; };  // generations first
  // clang-format on
  for (const Row& row : {Row{UINT32_MAX, 1, 5, 16, 21}, {1, 1, 2, 16, 34.5}}) {
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
  EXPECT_EQ(Seconds(clock._offset), 32.5);
  EXPECT_EQ(clock._generation, 2U);
}

// The lower clock wraps in the middle of every second phase. Threads live for a phase only, so that
// none sleeps within a reading for a whole turn of the clock: its wrap could not be seen.
TEST_F(Clock, NeverRunsBackwardsUnderManyThreads) {
  constexpr int THREADS = 4, READINGS = 400, PHASES = 60, STEPS = 2 * THREADS * READINGS;
  std::atomic<int> falls{0};
  for (int phase = 0; phase < PHASES; ++phase) {
    std::atomic<int> readings{0};
    Script().clock = [&] {
      const double now = phase * 8 + 6 + std::min(readings++, STEPS) * 8.0 / STEPS;
      return VORNNtpTime::FromSeconds(std::fmod(now, 16)).KelTimeGet();
    };
    const double start = SecondsGet();
    std::list<std::jthread> threads;
    for (int i = 0; i < THREADS; ++i)
      threads.emplace_back([&] {
        double before = start;
        for (int reading = 0; reading < READINGS; ++reading) {
          const double now = SecondsGet();
          falls += now < before ? 1 : 0;
          before = now;
        }
      });
  }
  EXPECT_EQ(falls, 0);
  EXPECT_EQ(Seconds(clock._offset) * 2, PHASES * 16.5);
}

}  // namespace
