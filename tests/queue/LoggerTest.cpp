#include "Reading.h"
#include "ipc/IpcHost.h"
#include "ipc/QueueKeys.h"

#include <fstream>
#include <vector>

#include <sys/mman.h>
#include <sys/prctl.h>

namespace {

using Logger = IpcHost;

/// One of the programs; what it prints on both outputs is kept.
class Program {
public:
  enum Place { HERE, NEW_PID_NAMESPACE, UNPRIVILEGED };
  explicit Program(std::vector<const char*> arguments, Place place = HERE)
      : _output(memfd_create("output", 0)), _child([&] { return Start(arguments, place); }) {}
  void Signal(int signal) const { kill(_child.pid, signal); }  // 0: none
  std::string Text() const {
    std::string text(1 << 16, '\0');
    EXPECT_GE(pread(_output, text.data(), text.size(), 0), 0);
    return text.substr(0, text.find('\0'));
  }
  bool Says(const std::string& text) const {
    return Await([&] { return Text().find(text) != std::string::npos; });
  }
  /// Waits for its end, after a signal if one is given.
  void Expect(int exitCode, const std::string& text, int signal = 0) {
    Signal(signal);
    EXPECT_EQ(_child.Wait(), exitCode);
    EXPECT_TRUE(Says(text)) << "'" << text << "' is not in\n" << Text();
  }

private:
  int Start(std::vector<const char*> arguments, Place place) const {
    dup2(_output, STDOUT_FILENO);
    dup2(_output, STDERR_FILENO);
    arguments.push_back(nullptr);
    const auto run = [&] { return execv(arguments[0], const_cast<char**>(arguments.data())); };
    if (place == UNPRIVILEGED)
      prctl(PR_CAPBSET_DROP, 15);  // CAP_IPC_OWNER: permissions hold for root, too
    const bool isApart = place == NEW_PID_NAMESPACE && unshare(CLONE_NEWPID) == 0;
    return isApart ? Child(run).Wait() : run();
  }

  const int _output;  // closed with the test
  Child _child;
};

void ReadingSend(std::int32_t sensor, int number) {
  char bytes[READING_SIZE];
  ASSERT_TRUE(ReadingPack({VORNNtpTime(), SequenceNumber(number), sensor, 20000}, bytes));
  ASSERT_EQ(ShmMsgQImpl(1, DEFAULT_QUEUE_ID).Send(bytes, sizeof bytes), 1);
}

constexpr int KEY = static_cast<int>(QueueKeyGet(DEFAULT_QUEUE_ID));
constexpr int MUTEX_KEY = static_cast<int>(QueueMutexKeyGet(DEFAULT_QUEUE_ID));

void OrphanMake() {
  Child([] { return ShmMsgQImpl(1, DEFAULT_QUEUE_ID, 100).IsValid(); }).Wait();
}

void ForbiddenQueueMake() {
  OrphanMake();
  shmid_ds state{};
  shmctl(shmget(KEY, 0, 0), IPC_STAT, &state);
  state.shm_perm.mode = 0044;
  shmctl(shmget(KEY, 0, 0), IPC_SET, &state);
}

void LimitSet(const char* name, const char* value) {
  std::ofstream file(std::string("/proc/sys/kernel/") + name);
  if (!(file << value << std::flush))
    GTEST_SKIP() << "may not write the namespace's kernel." << name;
}

}  // namespace

TEST_F(Logger, TakesOverAfterEachKillAndLosesNothingThatWaits) {
  Program first({LOGGER});
  ASSERT_TRUE(first.Says("is there"));
  Program sensor({SENSOR, "--sensor", "5", "--period", "20"});
  EXPECT_TRUE(first.Says("sensor 5: new"));
  first.Expect(-SIGKILL, "", SIGKILL);
  for (const int number : {1, 3, 7}) {
    ReadingSend(6, number);
    Program({LOGGER}).Expect(4, "go on with it by --take-over");
    Program adopter({LOGGER, "--take-over"});
    EXPECT_TRUE(adopter.Says("sensor 6: #" + std::to_string(number))) << adopter.Text();
    Program({LOGGER, "--take-over"}).Expect(3, "another logger serves queue 7");
    adopter.Expect(-SIGKILL, "", SIGKILL);
  }
  sensor.Expect(0, " 0 lost", SIGTERM);
  ReadingSend(6, 8);
  Program last({LOGGER, "--take-over"});
  EXPECT_TRUE(last.Says("sensor 6: #8"));
  last.Expect(0, ", 0 missing", SIGTERM);
  EXPECT_EQ(HostText(), "0/0") << "removed, although another process made it";
}

TEST_F(Logger, SaysWhyItDoesNotGetItsQueue) {
  using enum Program::Place;
  // clang-format off
  const struct { const char* name; void (*prepare)(); Program::Place place; int exitCode; const char* text; } rows[] = {
      {"maker lives", [] { ShmMsgQImpl(1, DEFAULT_QUEUE_ID, 100); }, HERE, 3, "which lives: end that one first"},
      {"maker in another PID namespace", OrphanMake, NEW_PID_NAMESPACE, 3, "cannot be seen from here"},
      {"foreign segment", [] { (void)shmget(KEY, 100, IPC_CREAT | 0600); }, HERE, 3, "is not a queue"},
      {"tiny segment", [] { (void)shmget(KEY, 3, IPC_CREAT | 0600); }, HERE, 3, "is not a queue"},
      {"no permission", ForbiddenQueueMake, UNPRIVILEGED, 3, "belongs to another user"},
      {"taken mutex alone", [] { NamedMutexTake(NamedMutexNew(MUTEX_KEY)); }, HERE, 3, "vorndiag queue 7`, remove it"},
      {"bytes of a segment", [] { LimitSet("shmmax", "65548"); }, HERE, 1, "65549 bytes in one segment; the host allows 65548"},
      {"number of segments", [] { LimitSet("shmmni", "0"); }, HERE, 1, "kernel.shmmni"},
      {"memory", [] { LimitSet("shmall", "16"); }, HERE, 1, "17 pages of all segments"},
      {"number of sets", [] { LimitSet("sem", "250 32000 32 1"); }, HERE, 1, "`sysctl kernel.sem`"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(HostFresh());
    row.prepare();
    if (IsSkipped())
      return;
    const std::string before = HostText();
    Program({LOGGER}, row.place).Expect(row.exitCode, row.text);
    Program({LOGGER, "--take-over"}, row.place).Expect(row.exitCode, row.text);
    EXPECT_EQ(HostText(), before) << "a refusal changes nothing";
  }
}

TEST_F(Logger, LeavesAQueueAloneFromWhichSomebodyElseReceives) {
  OrphanMake();
  Child receiver([] { return Queue(1, DEFAULT_QUEUE_ID).Receive(1).empty() ? 0 : 1; });
  ASSERT_TRUE(WaiterAwait(NamedSemaphoreNew(KEY, 0)));
  Program({LOGGER, "--take-over"}).Expect(3, "another process receives from it");
}

TEST_F(Logger, EndsPromptlyAtEachSignalAndRemovesItsQueue) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program logger({LOGGER});
    ASSERT_TRUE(logger.Says("is there"));
    ASSERT_TRUE(WaiterAwait(NamedSemaphoreNew(KEY, 0)));
    logger.Expect(0, "0 readings of 0 sensors, 0 missing", signal);
    EXPECT_EQ(logger.Text().find("as it is"), std::string::npos) << "comes after two seconds";
    EXPECT_EQ(HostText(), "0/0") << strsignal(signal);
  }
}

TEST_F(Logger, BothProgramsEndBesideTheMutexOfADeadSender) {
  Program logger({LOGGER});
  ASSERT_TRUE(logger.Says("is there"));
  const int mutex = NamedMutexNew(MUTEX_KEY);
  ASSERT_EQ(NamedMutexTake(mutex), 1);
  Program sensor({SENSOR, "--period", "1"});
  ASSERT_TRUE(WaiterAwait(mutex));
  sensor.Expect(3, "--give-mutex", SIGTERM);
  logger.Expect(0, "it is removed as it is", SIGTERM);
  EXPECT_EQ(HostText(), "0/0");
}

TEST_F(Logger, CountsGapsOfEachSensorAndIgnoresWhatIsNoReading) {
  Program logger({LOGGER, "--count", "6"});
  ASSERT_TRUE(logger.Says("is there"));
  ASSERT_EQ(ShmMsgQImpl(1, DEFAULT_QUEUE_ID).Send("", 0), 1) << "ends it only when it is to end";
  const struct { int sensor, number; } sent[] = {{1, 1}, {2, 10}, {1, 2}, {1, 5}, {2, 12}, {1, 1}};
  for (const auto& reading : sent)
    ReadingSend(reading.sensor, reading.number);
  logger.Expect(0, "6 readings of 2 sensors, 3 missing");
  for (const char* text : {"ignored a message that is no reading", "sensor 1: GAP, 2 missing",
                           "sensor 2: GAP, 1 missing", "sensor 1: has started again"})
    EXPECT_TRUE(logger.Says(text)) << text << "\n" << logger.Text();
}

TEST_F(Logger, SensorTellsAFullQueueFromNoLoggerAndFindsTheNextOne) {
  Program sensor({SENSOR, "--sensor", "3", "--period", "1"});
  EXPECT_TRUE(sensor.Says("sensor 3: no logger on queue 7"));
  Program logger({LOGGER, "--size", "60"});
  EXPECT_TRUE(sensor.Says("sensor 3: queue 7 takes readings again"));
  EXPECT_TRUE(logger.Says("sensor 3: new"));
  logger.Signal(SIGSTOP);
  EXPECT_TRUE(sensor.Says("sensor 3: queue 7 is full"));
  sensor.Expect(3, "readings sent", SIGTERM);
  logger.Signal(SIGTERM);
  logger.Expect(0, " of 1 sensors", SIGCONT);  // the message that ends it has waited for room
  EXPECT_EQ(HostText(), "0/0");
}
