#include "platform/DequeVoid.h"
#include "platform/KelDGram.h"
#include "platform/KelDebug.h"
#include "platform/KelMutex.h"
#include "platform/KelNtpTime.h"
#include "platform/KelSemaphore.h"
#include "platform/KelThread.h"
#include "platform/VornCDRStream.h"
#include "support/Emulator.h"
#include "support/HashTable.h"
#include "support/Results.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <functional>
#include <future>
#include <map>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::map<clockid_t, timespec> clocks;  // all that there are; none: those of the host
timespec* waitEnd = nullptr;           // set: takes when a timed wait ends, which does at once
int failingAllocation = 0;             // counted from 1; 0: none

std::function<void()> meanwhile;  // done once, within the next allocation

bool AllocationFails() {
  if (meanwhile)
    std::exchange(meanwhile, nullptr)();
  return failingAllocation > 0 && --failingAllocation == 0;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocationFails() ? nullptr : ::operator new(size);
}

// The linker sends the lower layer's calls here.
extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_clock_getres(clockid_t clock, timespec* resolution);
int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
int __real_getrlimit64(__rlimit_resource_t resource, rlimit64* limit);
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (clocks.empty())
    return __real_clock_gettime(clock, time);
  const auto found = clocks.find(clock);
  if (found != clocks.end())
    *time = found->second;
  return found != clocks.end() ? 0 : -1;
}

int __wrap_clock_getres(clockid_t clock, timespec* resolution) {
  return clock == CLOCK_MONOTONIC && clocks.empty() ? __real_clock_getres(clock, resolution) : -1;
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* end) {
  if (waitEnd == nullptr)
    return __real_pthread_cond_timedwait(condition, mutex, end);
  *waitEnd = *end;
  return ETIMEDOUT;
}

int __wrap_getrlimit64(__rlimit_resource_t resource, rlimit64* limit) {
  if (resource != RLIMIT_RTPRIO)
    return __real_getrlimit64(resource, limit);
  *limit = {50, 99};
  return 0;
}

// Seen from outside: the thread sanitizer's library refers to them.
VORN_API void* __wrap_malloc(std::size_t size) {
  return AllocationFails() ? nullptr : __real_malloc(size);
}

VORN_API void* __wrap_calloc(std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : __real_calloc(count, size);
}

}  // extern "C"

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001;

// In a buffer that is not aligned itself: the offset in it counts.
TEST(CDRStream, AlignsItemsAndChangesNothingWhereOneDoesNotFit) {
  for (const auto order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN})
    for (int capacity = 0; capacity <= 16; ++capacity)
      for (int start = 0; start <= capacity; ++start) {
        const int place = (start + 3) / 4 * 4, fits = place + 4 <= capacity ? 1 : 0;
        const int octetsFit = start + 3 <= capacity ? 1 : 0, end = fits != 0 ? place + 4 : start;
        const char* item = order == VORN_CDR_BIG_ENDIAN ? "\xa1\xb2\xc3\xd4" : "\xd4\xc3\xb2\xa1";
        std::string bytes(17, '\x5a'), expected = bytes;
        if (fits != 0)
          std::copy_n(item, 4, std::fill_n(expected.begin() + 1 + start, place - start, '\0'));
        VORNCDRStream stream{order, &bytes[1], capacity, start}, again = stream, octets = stream;
        std::uint32_t written = 0xA1B2C3D4, read = 7;
        SCOPED_TRACE(std::to_string(start) + " of " + std::to_string(capacity));
        EXPECT_EQ(VornCDR4ByteSerialize(&stream, &written), fits);
        EXPECT_EQ(VornCDR4ByteDeserialize(&again, &read), fits);
        EXPECT_EQ(bytes, expected);
        EXPECT_EQ(read, fits != 0 ? written : 7);
        EXPECT_EQ(stream.position, end);
        EXPECT_EQ(again.position, end);
        EXPECT_EQ(VornCDROctetsSerialize(&octets, "xyz", 3), octetsFit);
        EXPECT_EQ(VornCDRStreamPositionGet(&octets), start + 3 * octetsFit);
        EXPECT_EQ(VornCDRStreamPositionSet(&octets, capacity + 1 - start % 2), start % 2);
      }
}

TEST(CDRStream, RefusesWhatIsDamaged) {
  char bytes[] = "untouched", item[5] = "item";
  // clang-format off
  const struct { const char* what; VORNCDRStream stream; int count; int result; } rows[] = {
      {"nothing wrong", {0, bytes, 8, 4}, 0, 1},
      {"no octets at the end", {0, bytes, 4, 4}, 0, 1},
      {"no octets at the beginning", {0, bytes, 4, 0}, 0, 1},
      {"negative count", {0, bytes, 8, 4}, -1, 0},
      {"null buffer", {0, nullptr, 8, 4}, 4, 0},
      {"negative position", {0, bytes, 8, -1}, 4, 0},
      {"position after the end", {0, bytes, 3, 4}, 0, 0},
      {"negative capacity", {0, bytes, INT_MIN, 4}, 4, 0},
  };
  // clang-format on
  for (const auto& row : rows) {
    VORNCDRStream stream = row.stream;
    char* const octets = row.count > 0 ? item : nullptr;
    EXPECT_EQ(VornCDROctetsSerialize(&stream, octets, row.count), row.result) << row.what;
    EXPECT_EQ(VornCDROctetsDeserialize(&stream, octets, row.count), row.result) << row.what;
    if (row.result == 0 && row.count >= 0)
      ResultsExpect(0, {{row.what, VornCDR4ByteSerialize(&stream, item)},
                        {row.what, VornCDR4ByteDeserialize(&stream, item)}});
    EXPECT_EQ(stream.position, row.stream.position) << row.what;
  }
  VORNCDRStream stream{0, bytes, 8, 0};
  VornCDRStreamInitialize(nullptr, bytes, 8, VORN_CDR_BIG_ENDIAN);
  EXPECT_EQ(VORNCDRStream().byteOrder, VORN_CDR_BIG_ENDIAN);
  // clang-format off
  ResultsExpect(0, {{"null item", VornCDR4ByteSerialize(&stream, nullptr)},
                    {"null place", VornCDR4ByteDeserialize(&stream, nullptr)},
                    {"null octets", VornCDROctetsSerialize(&stream, nullptr, 1)},
                    {"no place for octets", VornCDROctetsDeserialize(&stream, nullptr, 1)},
                    {"no stream", VornCDR4ByteSerialize(nullptr, item)},
                    {"none to set", VornCDRStreamPositionSet(nullptr, 0)}, {"none to ask", VornCDRStreamPositionGet(nullptr)},
                    {"negative position", VornCDRStreamPositionSet(&stream, -1)}});
  // clang-format on
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

TEST_F(DGram, CarriesDatagramsOnTheLoopbackInterface) {
  ASSERT_EQ(far.sendTo(&far, &to, text, 8), 1);
  ASSERT_EQ(far.sendTo(&far, &to, nullptr, 0), 1);
  ASSERT_EQ(near.receiveFrom(&near, &from, buffer, 3), 8);
  EXPECT_STREQ(buffer, "dat");
  EXPECT_EQ(near.receiveFrom(&near, nullptr, buffer, 3), 0);
  ASSERT_EQ(near.sendTo(&near, &from, text, 5), 1);
  EXPECT_EQ(far.receiveFrom(&far, &to, buffer, 8), 5);
  EXPECT_STREQ(buffer, "datag");
  EXPECT_EQ(to.addressGet(&to), LOOPBACK);
  EXPECT_EQ(to.portGet(&to), to.port);
}

TEST_F(DGram, RefusesWithItsReason) {
  KELNetioAddr none, beyond = to, half = to;
  beyond.port += 65536;
  half.addressGet = nullptr;
  const auto refused = [](int result, int failure) { return result == failure ? errno : 0; };
  EXPECT_EQ(refused(far.bind(&far, LOOPBACK, to.port), 0), EADDRINUSE);
  // clang-format off
  ResultsExpect(EINVAL, {{"port above", refused(far.bind(&far, LOOPBACK, 65536), 0)},
                         {"port below", refused(far.bind(&far, LOOPBACK, -1), 0)},
                         {"to no port", refused(far.sendTo(&far, &beyond, text, 8), 0)},
                         {"to nobody", refused(far.sendTo(&far, &none, text, 8), 0)},
                         {"half an address", refused(far.sendTo(&far, &half, text, 8), 0)},
                         {"to null", refused(far.sendTo(&far, nullptr, text, 8), 0)},
                         {"null text", refused(far.sendTo(&far, &to, nullptr, 8), 0)},
                         {"length", refused(far.sendTo(&far, &to, text, -1), 0)},
                         {"null value", refused(far.optionSet(&far, 1, nullptr, 4), -1)},
                         {"size", refused(far.optionSet(&far, 1, text, -1), -1)},
                         {"buffer", refused(near.receiveFrom(&near, &from, nullptr, 8), -1)},
                         {"capacity", refused(near.receiveFrom(&near, &from, buffer, -1), -1)}});
  // clang-format on
  EXPECT_EQ(refused(near.receiveFrom(&near, &from, buffer, 8), -1), EAGAIN);
  EXPECT_EQ(refused(far.optionSet(&far, 0x200, text, 4), -1), ENOPROTOOPT);
}

TEST_F(DGram, SetsTheOptionsThatAreAskedFor) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  // clang-format off
  const struct { const char* what; int code, level, name, value, size, held; } rows[] = {
      {"share the port", 0x1, SOL_SOCKET, SO_REUSEADDR, 1, 4, 1},
      {"send buffer, which the kernel doubles", 0x2, SOL_SOCKET, SO_SNDBUF, 9000, 4, 18000},
      {"receive buffer", 0x4, SOL_SOCKET, SO_RCVBUF, 8000, 4, 16000},
      {"time to live", 0x20, IPPROTO_IP, IP_MULTICAST_TTL, 0x05050505, 1, 5},
      {"interface", 0x40, IPPROTO_IP, IP_MULTICAST_IF, static_cast<int>(htonl(LOOPBACK)), 4, static_cast<int>(htonl(LOOPBACK))},
      {"no loopback", 0x80, IPPROTO_IP, IP_MULTICAST_LOOP, 0, 1, 0},
      {"broadcast", 0x400, SOL_SOCKET, SO_BROADCAST, 1, 4, 1},
      {"foreign groups, from the start", 0, IPPROTO_IP, IP_MULTICAST_ALL, 0, 4, 0},
  };
  // clang-format on
  for (const auto& row : rows) {
    int held = -1, value = row.value;
    socklen_t size = sizeof held;
    if (row.code != 0) {
      EXPECT_EQ(far.optionSet(&far, row.code, &value, row.size), 0) << row.what;
    }
    EXPECT_EQ(getsockopt(far.socketGet(&far), row.level, row.name, &held, &size), 0) << row.what;
    EXPECT_EQ(held, row.held) << row.what;
  }
}

// Descriptor 0 is one like the others.
TEST_F(DGram, ClosesItsDescriptorAndNoOther) {
  const int input = dup(0);
  close(0);
  KELDGram first;
  EXPECT_EQ(KelDGramInitialize(&first), 1);
  EXPECT_EQ(first.socketGet(&first), 0);
  EXPECT_EQ(fcntl(0, F_GETFD), FD_CLOEXEC);
  for (int record = 1; record <= 2; ++record) {
    failingAllocation = record;  // of the two of a new endpoint
    EXPECT_EQ(KelDGramNew(), nullptr) << record;
  }
  const int next = dup(input);
  KelDGramRelease(&first);
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
  EXPECT_EQ(first.socketRecord, nullptr);
  KelDGramRelease(&first);
  dup2(input, 0);
  close(input);
  close(next);
  EXPECT_EQ(next, far.socketGet(&far) + 2);  // `input` lies between: the failed ones left nothing
  KELDGram* const made = KelDGramNew();
  ASSERT_NE(made, nullptr);
  const int descriptor = made->socketGet(made);
  KelDGramDelete(made);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  rlimit limit{}, none{};
  getrlimit(RLIMIT_NOFILE, &limit);
  none.rlim_max = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(KelDGramNew(), nullptr);
  setrlimit(RLIMIT_NOFILE, &limit);
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

TEST(HTClass, WakesAFindThatCameDuringAChange) {
  alarm(60);  // a find that sleeps on ends
  HTClass table;
  ASSERT_EQ(Insert(table, "known", nullptr), 1);
  std::future<HTNodeClass*> find;
  meanwhile = [&] {
    find = std::async(std::launch::async, [&table] { return Find(table, "known"); });
    EXPECT_EQ(find.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  };
  EXPECT_EQ(Insert(table, "new", nullptr), 1);
  EXPECT_NE(find.get(), nullptr);
  alarm(0);
}

TEST(Semaphore, IsBinary) {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  const KELNtpTime none;
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  for (const char* give : {"a taken one", "a free one"})
    EXPECT_EQ(KelSemaphoreGive(semaphore), 1) << give;
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  EXPECT_EQ(KelSemaphoreTake(semaphore, &none), 0);
  std::thread giver([semaphore] { KelSemaphoreGive(semaphore); });
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  giver.join();
  KelSemaphoreDelete(semaphore);
  ResultsExpect(0, {{"take none", KelSemaphoreTake(nullptr, nullptr)},
                    {"give none", KelSemaphoreGive(nullptr)}});
}

TEST(Semaphore, WaitsUntilItsTimeOutOnTheMonotonicClock) {
  KELSemaphore* semaphore = KelSemaphoreMutexNew(0);
  EXPECT_EQ(KelSemaphoreTake(semaphore, nullptr), 1);
  const KELNtpTime brief{0, 1U << 26};
  timespec before{}, after{};
  clock_gettime(CLOCK_MONOTONIC, &before);
  EXPECT_EQ(KelSemaphoreTake(semaphore, &brief), 0);
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000000LL + after.tv_nsec - before.tv_nsec,
            15625000);
  timespec end{};
  waitEnd = &end;
  clocks = {{CLOCK_MONOTONIC, {1000, 600000000}}};
  // clang-format off
  const struct { KELNtpTime timeout; std::int64_t seconds; long nanoseconds; } rows[] = {
      {{0, 0}, 1000, 600000000}, {{2, 1U << 30}, 1002, 850000000}, {{2, 1U << 31}, 1003, 100000000},
      {{0, 1717986919}, 1001, 0}, {{-1, 1U << 31}, 1000, 600000000}, {{INT_MAX, 0}, INT_MAX + 1000LL, 600000000}};
  // clang-format on
  for (const auto& row : rows) {
    EXPECT_EQ(KelSemaphoreTake(semaphore, &row.timeout), 0);
    EXPECT_EQ(end.tv_sec, row.seconds) << row.timeout.sec;
    EXPECT_EQ(end.tv_nsec, row.nanoseconds) << row.timeout.sec << ' ' << row.timeout.frac;
  }
  waitEnd = nullptr;
  clocks.clear();
  KelSemaphoreDelete(semaphore);
}

TEST(LowerClock, CountsSecondsSince1900AndWrapsAtThirtyBits) {
  KELNtpTime info, rollover, time;
  ASSERT_EQ(KelNtpTimeInit(&info, &rollover), 1);
  EXPECT_EQ(info.sec, 0);
  EXPECT_EQ(info.frac, 4U);  // a nanosecond
  EXPECT_EQ(rollover.sec, 1 << 30);
  EXPECT_EQ(rollover.frac, 0U);
  EXPECT_EQ(KelNtpTimeInit(nullptr, nullptr), 1);
  EXPECT_EQ(KelNtpTimeGet(&time), 1);
  const std::int64_t wall = std::time(nullptr) + 2208988800;
  EXPECT_LE((wall - time.sec) & ((1 << 30) - 1), 1);
  // From here on the monotonic clock is scripted, and asking for the wall's one again would show.
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  clocks = {{CLOCK_MONOTONIC, now}};
  EXPECT_EQ(KelNtpTimeGet(&time), 1);
  const KELNtpTime start = time;
  const std::int32_t left = (1 << 30) - start.sec;
  for (const std::int32_t later : {1, left - 1, left, left + 5}) {
    clocks[CLOCK_MONOTONIC].tv_sec = now.tv_sec + later;
    EXPECT_EQ(KelNtpTimeGet(&time), 1);
    EXPECT_EQ(time.sec, later < left ? start.sec + later : later - left);
    EXPECT_EQ(time.frac, start.frac);
  }
  clocks = {{CLOCK_REALTIME, now}};
  ResultsExpect(0, {{"get", KelNtpTimeGet(&time)}, {"start", KelNtpTimeInit(&info, &rollover)}});
  clocks.clear();
  EXPECT_EQ(KelNtpTimeGet(nullptr), 0);
  char text[KEL_NTP_TIME_TEXT_SIZE];
  const KELNtpTime last{INT_MAX, UINT32_MAX};
  EXPECT_STREQ(KelNtpTimeToString(&last, text), "2147483647.999999999");
}

TEST(Thread, MayHaveThePrioritiesOfTheHostAndOfItsLimit) {
  SKIP_UNDER_EMULATOR("capabilities");
  // clang-format off
  const struct { int priority, host, limited; } rows[] = {
      {-1, 0, 0}, {0, 0, 1}, {1, 1, 1}, {50, 1, 1}, {51, 1, 0}, {99, 1, 0}, {100, 0, 0}};
  // clang-format on
  const auto ask = [&](bool hasCapability) {
    for (const auto& row : rows) {
      const int permitted = hasCapability ? 1 : row.limited;
      EXPECT_EQ(KelThreadPriorityOK(row.priority, 1), row.host) << row.priority;
      EXPECT_EQ(KelThreadPriorityOK(row.priority, 2), permitted) << row.priority;
      EXPECT_EQ(KelThreadPriorityOK(row.priority, 3), row.host & permitted) << row.priority;
      EXPECT_EQ(KelThreadPriorityOK(row.priority, 0), 1) << row.priority;
    }
  };
  std::thread([&] {  // gives up what it may do beyond the limit, for itself alone
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    ASSERT_EQ(syscall(SYS_capget, &header, sets), 0);
    sets[0].effective |= sets[0].permitted & (1U << CAP_SYS_NICE);
    if ((sets[0].effective & (1U << CAP_SYS_NICE)) != 0)
      ask(true);
    sets[0].effective &= ~(1U << CAP_SYS_NICE);
    ASSERT_EQ(syscall(SYS_capset, &header, sets), 0);
    ask(false);
  })
      .join();
}

TEST(DequeVoid, IsADeque) {
  DequeVoid list;
  DequeVoidNode nodes[12];
  std::vector<DequeVoidNode*> model;
  std::mt19937 random(4);
  for (int step = 0; step < 3000; ++step) {
    DequeVoidNode* node = &nodes[random() % 12];
    const auto place = model.begin() + static_cast<std::ptrdiff_t>(random() % (model.size() + 1));
    DequeVoidNode* where = place != model.end() ? *place : nullptr;
    if (const auto held = std::find(model.begin(), model.end(), node); held != model.end()) {
      EXPECT_EQ(list.RemoveNode(node), node);
      model.erase(held);
    } else if (step % 2 != 0) {
      list.InsertNodeBefore(where, node);
      model.insert(where != nullptr ? place : model.begin(), node);
    } else {
      list.InsertNodeAfter(where, node);
      model.insert(where != nullptr ? place + 1 : place, node);
    }
    ASSERT_EQ(list.count, std::ssize(model));
    DequeVoidNode *first = list.first, *last = list.last;
    for (std::size_t i = 0; i < model.size(); first = first->next, last = last->previous, ++i)
      ASSERT_EQ(std::pair(first, last), std::pair(model[i], model[model.size() - 1 - i])) << step;
    EXPECT_EQ(first, nullptr) << step;
    EXPECT_EQ(last, nullptr) << step;
  }
}

TEST(DebugPrint, CutsLongTextsAndGivesThemToTheSink) {
  std::string printed;
  KelDebugSinkSet(
      [](const char* text, void* to) { static_cast<std::string*>(to)->append(text).append("|"); },
      &printed);
  const char* none = nullptr;
  EXPECT_EQ(KelDebugPrint(none, 0), -1);
  EXPECT_EQ(KelDebugPrint("%d", 72), 2);
  EXPECT_EQ(KelDebugPrint("%s", ""), 0);
  EXPECT_EQ(KelDebugPrint("%01500d", 7), 1023);
  KelDebugSinkSet(nullptr, nullptr);
  EXPECT_EQ(printed, "72||" + std::string(1023, '0') + "|");
}

}  // namespace
