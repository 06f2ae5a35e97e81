#include "ipc/IpcHost.h"
#include "ipc/ShmMsgQManager.h"
#include "ipc/internal/QueueLayout.h"
#include "platform/DequeVoid.h"
#include "support/ScriptedIpc.h"
#include "support/ScriptedLayer.h"
#include "support/ScriptedSystem.h"
#include "utils/VORNUtilsDiag.h"

#include <climits>
#include <map>
#include <memory>

namespace {

constexpr int KEY = 99;
int unlinked = 0;
int unlinkedNull = 0;
constexpr int ID = 5;
std::unique_ptr<Queue> creator;
std::unique_ptr<Queue> opener;

class IpcFault : public IpcHost {
protected:
  void TearDown() override {
    creator.reset();
    opener.reset();
    ScriptsReset();
    ShmMsgQManager::Destroy();
  }
  static void ScriptsReset() {
    ScriptReset();
    SystemReset();
    IpcReset();
  }
  // A host that does not number its next set 0, with no queue but one that is opened twice.
  static void HostPrepare(bool hasQueue) {
    creator.reset();
    opener.reset();
    ScriptsReset();
    ShmMsgQManager::Destroy();
    unlinked = 0;
    unlinkedNull = 0;
    HostFresh();
    SemaphoreMutexDelete(SemaphoreMutexNew(KEY, 0));
    creator = hasQueue ? std::make_unique<Queue>(1, ID, 64U) : nullptr;
    opener = hasQueue ? std::make_unique<Queue>(1, ID) : nullptr;
    ScriptsReset();
  }
};

// Result, validity and free bytes in one number.
int Sent(Queue& queue) {
  const int result = queue.Send("ab", 2);
  return 10000 * result + 1000 * queue.IsValid() + queue.SpaceGet();
}

int ShmResult(ShMHandle* handle) {
  const int result = handle != nullptr ? 1 : 0;
  ShMDelete(handle, 0);
  return result;
}

// One of the two objects, so that rows stay short.
Queue& Owner() { return *creator; }
Queue& Guest() { return *opener; }
int OpenTry() { return Queue(1, ID).IsValid(); }
int MakeTry(int id, unsigned int size) { return Queue(1, id, size).IsValid(); }
int SegmentTry(int key, unsigned int length) { return ShmResult(ShMNew(key, length)); }

int Print() {
  creator->Print();
  return 1;
}

int WrongArguments() {
  char byte = 0;
  return Guest().Send(nullptr, 1) + Guest().Send("", -1) + Guest().Recv(nullptr, 1) +
         Guest().Recv(&byte, -1);
}

const std::map<char, const char*> LINES = {
    {'s', "VORN: unable to allocate named semaphore\n"},
    {'v', "VORN: unable to allocate semaphore inti\n"},
    {'c', "VORN: Failed to close named semaphore.\n"},
    {'t', "VORN: TakeMutex failed.\n"},
    {'g', "VORN: ReleaseSemaphore failed.\n"},
    {'n', "VORN: shared memory: unable to create new shared handle\n"},
    {'o', "VORN: shared memory: unable to open shared handle, which may not exist any more\n"},
    {'p', "Shared Message Queue: id 5 refCount 1\n"}};

struct Case {
  const char* failing;  // the first calls that begin with this fail
  long times;
  int (*act)();
  long result;
  const char* lines;  // pairs of the least level that prints a line and its letter; '-': any
  const char* left = "2/1";
};

const Case CASES[] = {
    {"semget", 2, [] { return SemaphoreMutexNew(KEY, 0); }, 0, "0s"},
    {"semget", 2, [] { return NamedSemaphoreNew(KEY, 0); }, 0, "0s0s"},
    {"semget", 2, [] { return NamedMutexNew(KEY); }, 0, "0s"},
    {"", 0, [] { return SemaphoreMutexNew(0, 0); }, 0, "0s"},
    {"semctl SETVAL", 1, [] { return NamedSemaphoreNew(KEY, 0); }, 0, "0v0s", "3/1"},
    {"semctl IPC_RMID", 1, [] { return NamedMutexDelete(Owner()._mutexId); }, 0, "1c"},
    {"sem", 9, [] { return SemaphoreMutexDelete(0) + NamedMutexDelete(-1); }, 2, ""},
    {"semop", 1, [] { return NamedSemaphoreTake(Owner()._mutexId); }, 0, ""},
    {"semctl", 1, [] { return NamedMutexGive(Owner()._mutexId); }, 0, ""},
    {"", 0, [] { return NamedMutexTake(0) + NamedSemaphoreGive(-1); }, 0, ""},
    {"shmget", 1, [] { return SegmentTry(KEY, 1); }, 0, "0n"},
    {"shmat", 1, [] { return SegmentTry(KEY, 1); }, 0, "0n"},
    {"", 0, [] { return SegmentTry(0, 1) + SegmentTry(KEY, 0); }, 0, ""},
    {"shmget", 1, OpenTry, 0, "2o"},
    {"shmat", 1, OpenTry, 0, "2o"},
    {"shmctl", 1, OpenTry, 0, "2o"},
    {"", 0, [] { return MakeTry(ID, 16); }, 0, "0n"},
    {"", 0, [] { return MakeTry(6, INT_MAX) + MakeTry(6, UINT_MAX); }, 0, "0n0n"},
    {"semop", 1, [] { return Sent(Guest()); }, 11058, "2t"},
    {"semop", 2, [] { return Sent(Guest()); }, 1064, "2t2t"},
    {"semop", 1, [] { return Sent(Owner()) + Sent(Owner()); }, 0, "2t0n"},
    {"semctl SETVAL", 1, [] { return Sent(Guest()); }, 11052, "2g"},
    {"semop", 1, [] { return Guest().Receive(1) == "failed" ? 1 : 0; }, 1, ""},
    {"sem", 9, WrongArguments, -2, ""},
    {"", 0, Print, 1, "-p"},
};

}  // namespace

extern "C" {
// DequeVoid::RemoveNode
DequeVoidNode* __real__ZN9DequeVoid10RemoveNodeEP13DequeVoidNode(DequeVoid*, DequeVoidNode*);
DequeVoidNode* __wrap__ZN9DequeVoid10RemoveNodeEP13DequeVoidNode(DequeVoid* list,
                                                                 DequeVoidNode* node) {
  ++(node != nullptr ? unlinked : unlinkedNull);
  return __real__ZN9DequeVoid10RemoveNodeEP13DequeVoidNode(list, node);
}
}

TEST_F(IpcFault, EachFailureHasItsResultItsLinesAndItsLeftovers) {
  for (const Case& row : CASES)
    for (int level = -1; level <= 3; ++level) {
      SCOPED_TRACE(testing::Message() << "row " << &row - CASES << " at level " << level);
      HostPrepare(true);
      VornUtilsVerbositySet(level);
      long times = row.times;
      Ipc().fails = [&](const std::string& call) {
        return call.rfind(row.failing, 0) == 0 && times-- > 0;
      };
      EXPECT_EQ(row.act(), row.result);
      std::string expected;
      for (const char* line = row.lines; *line != 0; line += 2)
        expected += *line == '-' || *line - '0' <= level ? LINES.at(line[1]) : "";
      EXPECT_EQ(Script().printed, expected);
      Ipc().fails = nullptr;
      EXPECT_EQ(HostText(), row.left);
    }
}

// Result, what the host keeps, and segments attached, when the first, second, ... call is refused.
// An opener finds a segment without sets. `Open` leaves the set of a half-made queue, `Create` not.
TEST_F(IpcFault, EachRefusedCallOfAHalfMadeQueueIsUndoneAsFarAsPromised) {
  const struct {
    int (*act)();
    std::vector<const char*> results;
  } cases[] = {
      {[] { return ShmMsgQManager::New(ID, 16) != nullptr ? 1 : 0; },
       {"0 0/0 0", "0 0/0 0", "1 2/1 1", "0 0/0 0", "0 1/0 0", "1 2/1 1", "0 0/0 0", "0 1/0 0",
        "1 2/1 1", "1 2/1 1", "1 2/1 1"}},
      {[] { return ShmMsgQManager::Open(ID) != nullptr ? 1 : 0; },
       {"0 0/1 0", "0 0/1 0", "0 0/1 0", "1 2/1 1", "0 0/1 0", "0 1/1 0", "1 2/1 1", "0 1/1 0",
        "0 2/1 0", "1 2/1 1"}},
      {[] { return ShmMsgQManager::Create(ID); },
       {"0 0/1 0", "0 0/1 0", "0 0/1 0", "1 2/1 1", "0 0/1 0", "0 1/1 0", "1 2/1 1", "0 0/1 0",
        "0 1/1 0", "1 2/1 1"}},
  };
  for (const auto& row : cases)
    for (std::size_t n = 1; n <= row.results.size(); ++n) {
      HostPrepare(false);
      ASSERT_EQ(ShmMsgQManager::Initialize(), 1);
      if (&row != cases)
        ShMDelete(ShMNew(static_cast<int>(0xABBD000AU), 25), 0);
      IpcReset();
      std::size_t made = 0;
      Ipc().fails = [&](const std::string&) { return ++made == n; };
      std::string result = std::to_string(row.act());
      Ipc().fails = nullptr;
      result += " " + HostText() + " " + std::to_string(Ipc().attached);
      EXPECT_EQ(result, row.results[n - 1]) << "call " << n << " of case " << &row - cases;
      EXPECT_GE(made, n - (n == row.results.size() ? 1 : 0));
    }
}

TEST_F(IpcFault, EachFailedAllocationOfTheManagerIsARefusalThatLeavesNothing) {
  int (*const acts[])() = {[] { return ShmMsgQManager::New(6, 16) != nullptr ? 1 : 0; },
                           [] { return ShmMsgQManager::Open(ID) != nullptr ? 1 : 0; },
                           [] { return ShmMsgQManager::Create(ID); }};
  for (const auto& act : acts) {
    HostPrepare(true);
    System().failingAllocation = 1;
    EXPECT_EQ(ShmMsgQManager::Initialize(), 0);
    Script().semaphoreNewFails = true;
    EXPECT_EQ(ShmMsgQManager::Initialize(), 0);
    EXPECT_EQ(act(), 0) << "without a registry";
    Script().semaphoreNewFails = false;
    EXPECT_EQ(ShmMsgQManager::Initialize(), 1);
    for (int attempt = 1; attempt <= 6;
         ++attempt) {  // node, object, two for its attachments, handle
      EXPECT_EQ(HostText(), "2/1");
      System().allocations = 0;
      System().failingAllocation = attempt;
      EXPECT_EQ(act(), attempt == 6 ? 1 : 0) << attempt;
    }
  }
}

TEST_F(IpcFault, SendIsThreeSystemCallsAndRecvOfAMessageNone) {
  HostPrepare(true);
  EXPECT_EQ(opener->Send("ab", 2), 1);
  const std::string mutex = std::to_string(creator->_mutexId);
  const std::string semaphore = std::to_string(creator->_semaphoreId);
  EXPECT_EQ(Ipc().calls, (std::vector<std::string>{"semop " + mutex + " 0 -1 0",
                                                   "semctl SETVAL " + semaphore + " 0 1",
                                                   "semctl SETVAL " + mutex + " 0 1"}));
  IpcReset();
  EXPECT_EQ(creator->Receive(9), "ab");
  EXPECT_TRUE(Ipc().calls.empty());
}

TEST_F(IpcFault, RecvIntoNoBufferRemovesTheMessage) {
  HostPrepare(true);
  EXPECT_EQ(opener->Send("ab", 2), 1);
  EXPECT_EQ(creator->Recv(nullptr, 0), 0);
  EXPECT_EQ(creator->SpaceGet(), 64);
}

TEST_F(IpcFault, SegmentThatIsRemovedBetweenLookAndAttachIsRefused) {
  HostPrepare(true);
  Ipc().fails = [](const std::string& call) {
    if (call.rfind("shmat", 0) == 0)
      shmctl(creator->_shm->id, IPC_RMID, nullptr);
    return false;
  };
  EXPECT_EQ(ShMOpen(static_cast<int>(QueueKeyGet(ID))), nullptr);
  EXPECT_EQ(Ipc().attached, 0);
}

// A creator that a signal made invalid knows what it has made, and removes nothing of another's.
TEST_F(IpcFault, CreatorsDestroyRemovesTheSegmentThatAFailedSendLost) {
  for (const bool isMadeByAnother : {false, true}) {
    HostPrepare(true);
    opener.reset();
    Ipc().fails = [](const std::string& call) { return call.rfind("semop", 0) == 0; };
    EXPECT_EQ(creator->Send("", 0), 0);
    Ipc().fails = nullptr;
    EXPECT_EQ(HostText(), "2/1");
    if (isMadeByAnother) {
      Queue(1, ID).Destroy();
      opener = std::make_unique<Queue>(1, ID, 8U);
    }
    creator->Destroy();
    EXPECT_EQ(HostText(), isMadeByAnother ? "2/1" : "0/0");
  }
}

TEST_F(IpcFault, OpenerThatLostItsQueueFindsTheNextOne) {
  HostPrepare(true);
  creator->Destroy();
  EXPECT_EQ(opener->Send("ab", 2), 0) << "no queue";
  EXPECT_EQ(opener->IsValid(), 0);
  creator = std::make_unique<Queue>(1, ID, 64U);
  EXPECT_EQ(opener->Send("ab", 2), 1);
  EXPECT_EQ(opener->IsValid(), 1);
  EXPECT_EQ(creator->Receive(9), "ab");
  opener->Destroy();
  Queue(1, ID, 64U);
  EXPECT_EQ(opener->Send("ab", 2), 0) << "destroyed for good";
}

// What a recording double of the neighbour's list was asked to unlink.
TEST_F(IpcFault, ManagerUnlinksOnlyNodesThatItFound) {
  HostPrepare(false);
  ASSERT_EQ(ShmMsgQManager::Initialize(), 1);
  ShmMsgQ* queue = ShmMsgQManager::New(ID, 16);
  ShmMsgQManager::Acquire(ID);
  ShmMsgQManager::Release(queue, 0);
  ShmMsgQManager::ReleaseAll();
  ShmMsgQManager::Release(new Queue(1, 6), 0);  // registered nowhere
  ShmMsgQManager::Destroy();
  EXPECT_EQ(unlinked, 1);
  EXPECT_EQ(unlinkedNull, 0);
}

TEST_F(IpcFault, SetNumbered0IsGivenUpForAnother) {
  IpcReset();
  const int handle = SemaphoreMutexNew(KEY, 7);
  ASSERT_GT(handle, 0);
  const std::string value = "semctl SETVAL " + std::to_string(handle) + " 0 7";
  EXPECT_EQ(Ipc().calls,
            (std::vector<std::string>{"semget 63 1 0", "semget 63 1 3664", "semctl IPC_RMID 0 0",
                                      "semget 63 1 3664", value}));
  EXPECT_EQ(ValueGet(0), -1);
  EXPECT_EQ(ValueGet(handle), 7);
  ASSERT_TRUE(HostFresh());
  VornUtilsVerbositySet(-1);
  Ipc().fails = [](const std::string& call) { return call == "semctl IPC_RMID 0 0"; };
  testing::internal::CaptureStdout();
  EXPECT_EQ(SemaphoreMutexNew(KEY, 7), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unable to delete semaphore\n");
}

// The mutex is taken and given by what works on the registry, and by nothing else.
TEST_F(IpcFault, ManagerHoldsItsMutexAroundTheRegistryOnly) {
  HostPrepare(true);
  ASSERT_EQ(ShmMsgQManager::Initialize(), 1);
  ASSERT_EQ(ShmMsgQManager::Initialize(), 1);
  EXPECT_EQ(Script().calls, std::vector<std::string>{"KelSemaphoreMutexNew 0"});
  static ShmMsgQ* queue;
  const std::vector<std::string> locked{"KelSemaphoreTake", "KelSemaphoreGive"};
  const std::pair<void (*)(), std::vector<std::string>> acts[] = {
      {[] { ShmMsgQManager::New(ID, 16); }, {}},
      {[] { ShmMsgQManager::Open(6); }, {}},
      {[] { ShmMsgQManager::Release(nullptr, 1); }, {}},
      {[] { queue = ShmMsgQManager::Open(ID); }, locked},
      {[] { ShmMsgQManager::Create(6); }, locked},
      {[] { ShmMsgQManager::Acquire(ID); }, locked},
      {[] { ShmMsgQManager::Send(6, "", 0); }, locked},
      {[] { ShmMsgQManager::Release(queue, 0); }, locked},
      {[] { ShmMsgQManager::Release(ID); }, locked},
      {ShmMsgQManager::Print, locked},
      {ShmMsgQManager::ReleaseAll, locked},
      {ShmMsgQManager::Destroy, {locked[0], locked[1], "KelSemaphoreDelete"}}};
  for (const auto& [act, calls] : acts) {
    Script().calls.clear();
    act();
    EXPECT_EQ(Script().calls, calls);
  }
}
