#include "time/VORNClock.h"

#include "platform/KelMutex.h"
#include "support/Emulator.h"
#include "support/Faults.h"
#include "time/VORNNtpTime.h"

#include <algorithm>
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
  const auto expect = [this](double reading, double result, double offset, int corrections) {
    EXPECT_EQ(SecondsAt(reading), result) << reading;
    EXPECT_EQ(Seconds(clock._offset), offset) << reading;
    EXPECT_EQ(clock._generation, static_cast<std::uint32_t>(corrections)) << reading;
    EXPECT_EQ(Script().mutexTakes, corrections) << reading;
    EXPECT_EQ(Script().mutexGives, corrections) << reading;
  };
  expect(11, 11, 0, 0);
  expect(2.25, 18.75, 16.5, 1);
  expect(15, 31.5, 16.5, 1);
  expect(15, 31.5, 16.5, 1);
  expect(0, 33, 33, 2);
  clock.TimeGet(nullptr);
  EXPECT_EQ(Script().clockReadings, 5);
  // After the last generation the count starts anew: the mark would make readers wait for ever.
  clock._generation = UINT32_MAX - 1;
  EXPECT_EQ(SecondsAt(9), 42);
  EXPECT_EQ(SecondsAt(0), 49.5);
  EXPECT_EQ(SecondsAt(1), 50.5);
  EXPECT_EQ(clock._generation, 0U);
  EXPECT_EQ(FaultsTry([] { return VORNClock().IsValid(); }), "KelMutexNew");
  EXPECT_EQ(Script().mutexes, 1);
}

// The outer reader has got its reading from the lower layer when another one comes.
TEST_F(Clock, ReadsAgainAfterACorrectionWithinTheReadingButNotForAReaderThatIsAhead) {
  const auto expect = [this](std::int32_t reading, double other, double result, int takes) {
    int depth = 0;
    Script().clock = [&] {
      if (depth++ > 0)
        return KELNtpTime{depth, 0};  // 2 for the other reader, then 3
      EXPECT_EQ(SecondsGet(), other);
      return KELNtpTime{reading, 0};
    };
    EXPECT_EQ(SecondsGet(), result) << reading;
    EXPECT_EQ(Script().mutexTakes, takes) << reading;
  };
  expect(1, 2, 1, 0);
  SecondsAt(11);
  expect(15, 18.5, 19.5, 2);  // one to correct, one to wait for its end; 31.5 without it
  EXPECT_EQ(Seconds(clock._offset), 16.5);
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
  int status = 0, stops = 0;
  for (; waitpid(reader, &status, 0) == reader && WIFSTOPPED(status); ++stops) {
    const Seen now{shared->_generation, shared->_lastSeconds, Seconds(shared->_offset)};
    if (all.empty() || all.back() != now)
      all.push_back(now);
    if (ptrace(PTRACE_SINGLESTEP, reader, nullptr, nullptr) != 0)
      kill(reader, SIGKILL);
  }
  shared->~ClockProbe();
  munmap(room, sizeof clock);
  if (stops < 2)
    GTEST_SKIP() << "no single steps here";
  constexpr std::uint32_t MARK = UINT32_MAX;
  EXPECT_EQ(
      all,
      (std::vector<Seen>{
          {0, 11, 0}, {MARK, 11, 0}, {MARK, 0, 0}, {MARK, 0, 16}, {MARK, 0, 16.5}, {1, 0, 16.5}}));
}

TEST_F(Clock, ReadersWaitForACorrectionInProgressAndCorrectOneWrapOnce) {
  const auto expect = [this](std::uint32_t generation, std::int32_t reading, double result) {
    Script().clock = [reading] { return KELNtpTime{reading, 0}; };
    Script().mutexTakes = 0;
    KelMutexTake(clock._clockMutex);
    clock._generation = generation;
    std::list<std::jthread> readers;
    for (int i = 0; i < 3; ++i)
      readers.emplace_back([&] { EXPECT_EQ(SecondsGet(), result); });
    // Until each has found the mark, or the wrap under the same generation; at most 20 seconds.
    for (int i = 0; i < 20000 && Script().mutexTakes < 4; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(Script().mutexTakes, 4);
    clock._offset.sec = 16;
    clock._generation = 1;
    KelMutexGive(clock._clockMutex);
  };
  expect(UINT32_MAX, 5, 21);
  expect(1, 2, 34.5);
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
