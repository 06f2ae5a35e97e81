#include "platform/KelDGram.h"
#include "platform/KelMutex.h"
#include "platform/KelNtpTime.h"
#include "platform/KelSemaphore.h"
#include "platform/KelThread.h"
#include "platform/VornCDRStream.h"
#include "support/Emulator.h"
#include "support/HashTable.h"
#include "support/Results.h"
#include "support/Wrapped.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <new>
#include <thread>

#include <fcntl.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::map<clockid_t, timespec> clocks;  // all that there are; none: those of the host
timespec waitEnd{};                    // of the last timed wait, which ended at once
int failingAllocation = 0;             // counted from 1; 0: none

std::function<void()> meanwhile;  // done once, within the next allocation or timed wait

bool AllocationFails() {
  if (meanwhile)
    std::exchange(meanwhile, nullptr)();
  return failingAllocation > 0 && --failingAllocation == 0;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocationFails() ? nullptr : ::operator new(size);
}

WRAPPED(CLOCK_GETTIME, int, ClockGet, clockid_t clock, timespec* time) {
  if (clocks.empty())
    return ClockGetReal(clock, time);
  const auto found = clocks.find(clock);
  if (found != clocks.end())
    *time = found->second;
  return found != clocks.end() ? 0 : -1;
}

WRAPPED(CLOCK_GETRES, int, ResolutionGet, clockid_t clock, timespec* resolution) {
  return clock == CLOCK_MONOTONIC && clocks.empty() ? ResolutionGetReal(clock, resolution) : -1;
}

WRAPPED(PTHREAD_COND_TIMEDWAIT, int, Wait, pthread_cond_t*, pthread_mutex_t* mutex,
        const timespec* end) {
  waitEnd = *end;
  pthread_mutex_unlock(mutex);
  if (meanwhile)
    std::exchange(meanwhile, nullptr)();
  pthread_mutex_lock(mutex);
  return ETIMEDOUT;
}

WRAPPED("getrlimit64", int, LimitGet, __rlimit_resource_t resource, rlimit64* limit) {
  if (resource != RLIMIT_RTPRIO)
    return LimitGetReal(resource, limit);
  *limit = {50, 99};
  return 0;
}

// Seen from outside: the thread sanitizer's library refers to them.
WRAPPED("malloc", VORN_API void*, Allocate, std::size_t size) {
  return AllocationFails() ? nullptr : AllocateReal(size);
}

WRAPPED("calloc", VORN_API void*, AllocateZeros, std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : AllocateZerosReal(count, size);
}

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001;

TEST(CDRStream, RefusesWhatIsDamaged) {
  char bytes[] = "untouched", item[5] = "item";
  const auto expect = [&](const char* what, VORNCDRStream stream, int count) {
    const int position = stream.position;
    SCOPED_TRACE(what);
    ResultsExpect(0, {{"write", VornCDR4ByteSerialize(&stream, item)},
                      {"read", VornCDR4ByteDeserialize(&stream, item)},
                      {"write octets", VornCDROctetsSerialize(&stream, item, count)},
                      {"read octets", VornCDROctetsDeserialize(&stream, item, count)}});
    EXPECT_EQ(stream.position, position);
  };
  expect("negative position", {0, bytes, 8, -1}, 4);
  expect("position after the end", {0, bytes, 3, 4}, 0);
  expect("negative capacity", {0, bytes, INT_MIN, 4}, 4);
  EXPECT_STREQ(bytes, "untouched");
}

// Two endpoints, of which `near` has a port on the loopback interface.
struct DGram : testing::Test {
  KELDGram near, far;
  KELNetioAddr to, from;
  char text[9] = "datagram", buffer[9] = "";

  void SetUp() override {
    ASSERT_EQ(KelDGramInitialize(&near), 1);
    ASSERT_EQ(KelDGramInitialize(&far), 1);
    const int port = near.bind(&near, LOOPBACK, 0);
    ASSERT_GT(port, 0) << "127.0.0.1: " << std::strerror(errno);
    KelNetioAddrInitialize(&to, LOOPBACK, port);
  }
  void TearDown() override {
    KelDGramRelease(&near);
    KelDGramRelease(&far);
  }
};

TEST_F(DGram, RefusesWithItsReason) {
  KELNetioAddr beyond = to, half = to;
  beyond.port += 65536;
  half.addressGet = nullptr;
  const auto refused = [](int result, int failure) { return result == failure ? errno : 0; };
  ResultsExpect(EINVAL, {{"port above", refused(far.bind(&far, LOOPBACK, 65536), 0)},
                         {"port below", refused(far.bind(&far, LOOPBACK, -1), 0)},
                         {"to no port", refused(far.sendTo(&far, &beyond, text, 8), 0)},
                         {"half an address", refused(far.sendTo(&far, &half, text, 8), 0)},
                         {"null text", refused(far.sendTo(&far, &to, nullptr, 8), 0)},
                         {"length", refused(far.sendTo(&far, &to, text, -1), 0)},
                         {"null value", refused(far.optionSet(&far, 1, nullptr, 4), -1)},
                         {"size", refused(far.optionSet(&far, 1, text, -1), -1)},
                         {"buffer", refused(near.receiveFrom(&near, &from, nullptr, 8), -1)},
                         {"capacity", refused(near.receiveFrom(&near, &from, buffer, -1), -1)}});
  EXPECT_EQ(far.sendTo(&far, &to, nullptr, 0), 1) << "no bytes";
}

TEST_F(DGram, LeavesNoDescriptorBehind) {
  EXPECT_EQ(fcntl(far.socketGet(&far), F_GETFD), FD_CLOEXEC);
  const int next = dup(near.socketGet(&near));
  close(next);
  for (int record = 1; record <= 2; ++record) {
    failingAllocation = record;  // of the two of a new endpoint
    EXPECT_EQ(KelDGramNew(), nullptr) << record;
  }
  EXPECT_EQ(dup(near.socketGet(&near)), next);
  close(next);
}

TEST(Memory, IsMissedOneBlockAtATime) {
  failingAllocation = 1;
  EXPECT_EQ(KelMutexNew(), nullptr);
  failingAllocation = 1;
  EXPECT_EQ(KelSemaphoreMutexNew(0), nullptr);
  HTClass table;
  for (int i = 0; i < 40; ++i) {
    failingAllocation = 1;
    EXPECT_EQ(Insert(table, std::to_string(i), nullptr), 0) << i;
    failingAllocation = 2;  // the larger table, when one is due
    EXPECT_EQ(Insert(table, std::to_string(i), nullptr), 1) << i;
  }
  failingAllocation = 0;
  for (int i = 0; i < 40; ++i)
    EXPECT_NE(Find(table, std::to_string(i)), nullptr) << i;
}

TEST(HTClass, WakesFindsThatCameDuringAChange) {
  alarm(60);  // a find that sleeps on ends
  HTClass table;
  ASSERT_EQ(Insert(table, "known", nullptr), 1);
  std::future<HTNodeClass*> finds[2];
  meanwhile = [&] {
    for (auto& find : finds) {
      std::atomic<pid_t> id = 0;  // set when nothing is left to do but the find
      find = std::async(std::launch::async, [&] {
        id = gettid();
        return Find(table, "known");
      });
      char now = '?';  // its state
      while (now != 'S' && find.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
        std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat").ignore(99, ')') >> now;
      EXPECT_EQ(now, 'S') << "found during the change";
    }
  };
  EXPECT_EQ(Insert(table, "new", nullptr), 1);
  for (auto& find : finds)
    EXPECT_NE(find.get(), nullptr);
  alarm(0);
}

TEST(Semaphore, WaitsUntilItsTimeOutOnTheMonotonicClock) {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  clocks = {{CLOCK_MONOTONIC, {1000, 600000000}}};
  const auto expect = [=](KELNtpTime timeout, int taken, std::int64_t seconds, long nanoseconds) {
    EXPECT_EQ(KelSemaphoreTake(semaphore, &timeout), taken) << timeout.sec << ' ' << timeout.frac;
    EXPECT_EQ(waitEnd.tv_sec, seconds) << timeout.sec << ' ' << timeout.frac;
    EXPECT_EQ(waitEnd.tv_nsec, nanoseconds) << timeout.sec << ' ' << timeout.frac;
  };
  expect({0, 0}, 0, 1000, 600000000);
  expect({2, 1U << 31}, 0, 1003, 100000000);
  expect({0, 1717986919}, 0, 1001, 0);
  expect({-1, 1U << 31}, 0, 1000, 600000000);
  expect({INT_MAX, 0}, 0, INT_MAX + 1000LL, 600000000);
  meanwhile = [semaphore] { KelSemaphoreGive(semaphore); };  // as the time runs out
  expect({0, 0}, 1, 1000, 600000000);
  clocks.clear();
  KelSemaphoreDelete(semaphore);
}

TEST(LowerClock, CountsSecondsSince1900AndWrapsAtThirtyBits) {
  constexpr std::int32_t START = 2208988803 % (1 << 30), LEFT = (1 << 30) - START;
  KELNtpTime info, rollover, time;
  // The first reading adds what the wall clock is ahead; asking for that clock again would show.
  clocks = {{CLOCK_REALTIME, {3, 1}}, {CLOCK_MONOTONIC, {100, 2}}};
  EXPECT_EQ(KelNtpTimeGet(&time), 1);
  const auto expect = [&](int later, long nanoseconds, std::int32_t sec, std::uint32_t frac) {
    clocks = {{CLOCK_MONOTONIC, {100 + later, nanoseconds}}};
    EXPECT_EQ(KelNtpTimeGet(&time), 1);
    EXPECT_EQ(time.sec, sec) << later << ' ' << nanoseconds;
    EXPECT_EQ(time.frac, frac) << later << ' ' << nanoseconds;
  };
  expect(0, 0, START - 1, 4294967291);
  expect(0, 1, START, 0);
  expect(LEFT, 0, (1 << 30) - 1, 4294967291);
  expect(LEFT, 1, 0, 0);
  expect(LEFT + 5, 2, 5, 4);
  clocks.clear();
  ASSERT_EQ(KelNtpTimeInit(&info, &rollover), 1);
  EXPECT_EQ(info.sec, 0);
  EXPECT_EQ(info.frac, 4U);  // a nanosecond
  EXPECT_EQ(rollover.sec, 1 << 30);
  EXPECT_EQ(rollover.frac, 0U);
  clocks = {{CLOCK_REALTIME, {}}};
  ResultsExpect(0, {{"get", KelNtpTimeGet(&time)}, {"start", KelNtpTimeInit(&info, &rollover)}});
  clocks.clear();
}

TEST(Thread, MayHaveThePrioritiesOfTheHostAndOfItsLimit) {
  SKIP_UNDER_EMULATOR("capabilities");
  const std::jthread thread([&] {  // gives up what it may do beyond the limit, for itself alone
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    ASSERT_EQ(syscall(SYS_capget, &header, sets), 0);
    sets[0].effective &= ~(1U << CAP_SYS_NICE);
    ASSERT_EQ(syscall(SYS_capset, &header, sets), 0);
    for (const int level : {-1, 0, 1, 50, 51, 99, 100}) {
      EXPECT_EQ(KelThreadPriorityOK(level, 0), 1) << level;
      EXPECT_EQ(KelThreadPriorityOK(level, 1), level == std::clamp(level, 1, 99)) << level;
      EXPECT_EQ(KelThreadPriorityOK(level, 2), level == std::clamp(level, 0, 50)) << level;
      EXPECT_EQ(KelThreadPriorityOK(level, 3), level == std::clamp(level, 1, 50)) << level;
    }
  });
}

}  // namespace
