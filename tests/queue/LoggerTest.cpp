#include "Reading.h"
#include "SendFailure.h"
#include "ipc/IpcHost.h"
#include "ipc/QueueKeys.h"

#include <fstream>

namespace {

using Logger = EmptiedHost;

const std::string LOG = "'" LOGGER "' ";
const std::string SENSE = "'" SENSOR "' ";
const std::string UNPRIVILEGED = "setpriv --bounding-set=-ipc_owner ";  // or root may all

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

void ForbiddenSegmentMake() { (void)shmget(KEY, 100, IPC_CREAT | 0044); }

void LimitSet(const std::string& name, const char* value) {
  if (!(std::ofstream("/proc/sys/kernel/" + name) << value << std::flush))
    GTEST_SKIP() << "may not write the namespace's kernel." << name;
}

}  // namespace

// At last it removes the queue, although another process made it.
TEST_F(Logger, TakesOverAfterEachKillAndLosesNothingThatWaits) {
  Program first(LOG);
  first.Says("is there");
  Program sensor(SENSE + "--sensor 5 --period 20");
  first.Says("sensor 5: new");
  first.Expect(-SIGKILL, "", SIGKILL);
  for (const int number : {1, 3, 7}) {
    ReadingSend(6, number);
    Program(LOG).Expect(4, "go on with it by --take-over");
    Program adopter(LOG + "--take-over");
    adopter.Says("sensor 6: #" + std::to_string(number));
    Program(LOG + "--take-over").Expect(3, "another logger serves queue 7");
    adopter.Expect(-SIGKILL, "", SIGKILL);
  }
  sensor.Expect(0, " 0 lost", SIGTERM);
  ReadingSend(6, 8);
  Program last(LOG + "--take-over");
  last.Says("sensor 6: #8");
  last.Expect(0, ", 0 missing", SIGTERM);
}

TEST_F(Logger, SaysWhyItDoesNotGetItsQueue) {
  const std::string here, apart = "unshare --pid --fork ";
  // clang-format off
  const struct { const char* name; void (*prepare)(); std::string place; int exitCode; const char* text; } rows[] = {
      {"maker lives", [] { ShmMsgQImpl(1, DEFAULT_QUEUE_ID, 100); }, here, 3, "which lives: end that one first"},
      {"maker in another PID namespace", OrphanMake, apart, 3, "cannot be seen from here"},
      {"foreign segment", [] { (void)shmget(KEY, 100, IPC_CREAT | 0600); }, here, 3, "is not a queue"},
      {"tiny segment", [] { (void)shmget(KEY, 3, IPC_CREAT | 0600); }, here, 3, "is not a queue"},
      {"no permission", ForbiddenSegmentMake, UNPRIVILEGED, 3, "belongs to another user"},
      {"taken mutex alone", [] { NamedMutexTake(NamedMutexNew(MUTEX_KEY)); }, here, 3, "vorndiag queue 7`, remove it"},
      {"bytes of a segment", [] { LimitSet("shmmax", "65548"); }, here, 1, "65549 bytes in one segment; the host allows 65548"},
      {"number of segments", [] { LimitSet("shmmni", "0"); }, here, 1, "kernel.shmmni"},
      {"memory", [] { LimitSet("shmall", "16"); }, here, 1, "17 pages of all segments"},
      {"number of sets", [] { LimitSet("sem", "250 32000 32 1"); }, here, 1, "`sysctl kernel.sem`"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(HostFresh());
    row.prepare();
    if (IsSkipped())
      return;
    const std::string before = HostText();
    Program(row.place + LOG).Expect(row.exitCode, row.text);
    Program(row.place + LOG + "--take-over").Expect(row.exitCode, row.text);
    EXPECT_EQ(HostText(), before) << "a refusal changes nothing";
  }
  HostFresh();
}

TEST_F(Logger, LeavesAQueueAloneFromWhichSomebodyElseReceives) {
  OrphanMake();
  OwnQueue queue(1, DEFAULT_QUEUE_ID);
  Child receiver([&] { return queue.Receive(1).empty() ? 0 : 1; });
  ASSERT_TRUE(WaiterAwait(queue._semaphoreId));
  Program(LOG + "--take-over").Expect(3, "another process receives from it");
}

// Its segment is gone and its sets are not, as when a maker did not get the sets for itself.
TEST_F(Logger, IsFoundBySendersOfAQueueThatWasMadeInVain) {
  const Queue maker(1, DEFAULT_QUEUE_ID, 100);
  Queue sender(1, DEFAULT_QUEUE_ID);
  shmctl(sender._shm->id, IPC_RMID, nullptr);
  Program logger(LOG + "--count 1");
  logger.Says("is there");
  char bytes[READING_SIZE];
  EXPECT_TRUE(ReadingPack({VORNNtpTime(), SequenceNumber(1), 1, 20000}, bytes));
  EXPECT_EQ(sender.Send(bytes, sizeof bytes), 1);
  logger.Expect(0, "1 readings of 1 sensors");
}

TEST_F(Logger, EndsPromptlyAtEachSignalAndRemovesItsQueue) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Program logger(LOG);
    logger.Says("is there");
    ASSERT_TRUE(WaiterAwait(NamedSemaphoreNew(KEY, 0)));
    logger.Expect(0, "0 readings of 0 sensors, 0 missing", signal);
    EXPECT_EQ(logger.Text().find("as it is"), std::string::npos) << "comes after two seconds";
    EXPECT_EQ(HostText(), "0/0") << strsignal(signal);
  }
}

TEST_F(Logger, BothProgramsEndBesideTheMutexOfADeadSender) {
  Program logger(LOG);
  logger.Says("is there");
  const int mutex = NamedMutexNew(MUTEX_KEY);
  ASSERT_EQ(NamedMutexTake(mutex), 1);
  Program sensor(SENSE + "--period 1");
  ASSERT_TRUE(WaiterAwait(mutex));
  sensor.Expect(3, "--give-mutex", SIGTERM);
  logger.Expect(0, "it is removed as it is", SIGTERM);
}

TEST_F(Logger, CountsGapsOfEachSensorAndIgnoresWhatIsNoReading) {
  Program logger(LOG + "--count 6");
  logger.Says("is there");
  ASSERT_EQ(ShmMsgQImpl(1, DEFAULT_QUEUE_ID).Send("", 0), 1) << "ends it only when it is to end";
  ReadingSend(1, 1);
  ReadingSend(2, 10);
  ReadingSend(1, 2);
  ReadingSend(1, 5);
  ReadingSend(2, 12);
  ReadingSend(1, 1);
  logger.Expect(0, "6 readings of 2 sensors, 3 missing");
  for (const char* text : {"ignored a message that is no reading", "sensor 1: GAP, 2 missing",
                           "sensor 2: GAP, 1 missing", "sensor 1: has started again"})
    logger.Says(text);
}

TEST_F(Logger, SensorTellsAFullQueueFromNoLoggerAndFindsTheNextOne) {
  Program sensor(SENSE + "--sensor 3 --period 1");
  sensor.Says("sensor 3: no logger on queue 7");
  Program logger(LOG + "--size 60");
  logger.Says("sensor 3: new");
  logger.Signal(SIGSTOP);
  sensor.Says("sensor 3: queue 7 is full");
  logger.Signal(SIGCONT);
  sensor.Says("sensor 3: queue 7 takes readings again");
  logger.Signal(SIGSTOP);
  EXPECT_TRUE(Await([] { return Queue(1, DEFAULT_QUEUE_ID).SpaceGet() < READING_SIZE + 4; }));
  sensor.Expect(3, "readings sent", SIGTERM);
  logger.Signal(SIGTERM);
  logger.Expect(0, " of 1 sensors", SIGCONT);  // the message that ends it has waited for room
}

TEST_F(Logger, EachZeroOfSendHasItsMeaning) {
  // clang-format off
  const struct { const char* name; void (*prepare)(Queue&); int length; SendFailure meaning; } rows[] = {
      {"a negative length", [](Queue&) {}, -1, SendFailure::WRONG_MESSAGE},
      {"longer than the queue", [](Queue&) {}, 61, SendFailure::TOO_LONG},
      {"no room", [](Queue& queue) { queue.Send("message", 7); }, 50, SendFailure::FULL},
      {"removed", [](Queue& queue) { queue.Destroy(); }, 1, SendFailure::GONE},
      {"write offset before the ring", [](Queue& queue) { queue._header->writeOffset = -1; }, 1, SendFailure::DAMAGED},
      {"read offset behind the ring", [](Queue& queue) { queue._header->readOffset = 65; }, 1, SendFailure::DAMAGED},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(HostFresh());
    Queue queue(1, DEFAULT_QUEUE_ID, 64);
    row.prepare(queue);
    const char bytes[64] = "";
    EXPECT_EQ(queue.Send(bytes, row.length), 0);
    EXPECT_EQ(SendFailureGet(DEFAULT_QUEUE_ID, bytes, row.length), row.meaning);
  }
  ASSERT_TRUE(HostFresh());
  ForbiddenSegmentMake();
  Program(UNPRIVILEGED + SENSE + "--count 1 --period 1")
      .Expect(3, "is another user's and not for this one");
  HostFresh();
}
