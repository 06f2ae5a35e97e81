#include "ipc/IpcHost.h"
#include "ipc/ShmMsgQManager.h"
#include "ipc/internal/QueueLayout.h"
#include "platform/DequeVoid.h"
#include "support/ScriptedIpc.h"
#include "support/ScriptedLayer.h"
#include "support/ScriptedSystem.h"
#include "utils/VORNUtilsDiag.h"

#include <climits>
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

std::string Sent(Queue& queue) {
  const int result = queue.Send("ab", 2);
  return std::string(result == 1 ? "sent" : "not sent") +
         (queue.IsValid() == 1 ? ", valid, " : ", invalid, ") + std::to_string(queue.SpaceGet()) +
         " free";
}

std::string Pointed(ShMHandle* handle) {
  ShMDelete(handle, 0);
  return handle != nullptr ? "handle" : "null";
}

std::string Number(int value) { return std::to_string(value); }

/// A line and the least level that prints it.
struct Line {
  int level;
  const char* text;
};

constexpr Line NO_SET{0, "VORN: unable to allocate named semaphore\n"};
constexpr Line NO_VALUE{0, "VORN: unable to allocate semaphore inti\n"};
constexpr Line NOT_CLOSED{1, "VORN: Failed to close named semaphore.\n"};
constexpr Line NOT_TAKEN{2, "VORN: TakeMutex failed.\n"};
constexpr Line NOT_GIVEN{2, "VORN: ReleaseSemaphore failed.\n"};
constexpr Line NOT_MADE{0, "VORN: shared memory: unable to create new shared handle\n"};
constexpr Line NOT_OPENED{
    2, "VORN: shared memory: unable to open shared handle, which may not exist any more\n"};
constexpr Line PRINTED{INT_MIN, "Shared Message Queue: id 5 refCount 1\n"};

struct Case {
  const char* name;
  const char* refused;  // the first calls that begin with this are refused
  int times;            // so many of them
  std::string (*act)();
  const char* result;
  std::vector<Line> lines;
  const char* left = "2/1";  // sets and segments on the host
};

char byte;

// One row a line.
// clang-format off
const Case CASES[] = {
    {"set: neither opened nor made", "semget", 2, [] { return Number(SemaphoreMutexNew(KEY, 0)); }, "0", {NO_SET}},
    {"semaphore: neither opened nor made", "semget", 2, [] { return Number(NamedSemaphoreNew(KEY, 0)); }, "0", {NO_SET, NO_SET}},
    {"mutex: neither opened nor made", "semget", 2, [] { return Number(NamedMutexNew(KEY)); }, "0", {NO_SET}},
    {"set: key 0", "", 0, [] { return Number(SemaphoreMutexNew(0, 0)); }, "0", {NO_SET}},
    {"semaphore: made, no value", "semctl SETVAL", 1, [] { return Number(NamedSemaphoreNew(KEY, 0)); }, "0", {NO_VALUE, NO_SET}, "3/1"},
    {"mutex: not removed", "semctl IPC_RMID", 1, [] { return Number(NamedMutexDelete(creator->_mutexId)); }, "0", {NOT_CLOSED}},
    {"set: handle 0 is not removed", "sem", 9, [] { return Number(SemaphoreMutexDelete(0)); }, "1", {}},
    {"mutex: handle -1 is not removed", "sem", 9, [] { return Number(NamedMutexDelete(-1)); }, "1", {}},
    {"semaphore: not taken", "semop", 1, [] { return Number(NamedSemaphoreTake(creator->_mutexId)); }, "0", {}},
    {"mutex: not given", "semctl", 1, [] { return Number(NamedMutexGive(creator->_mutexId)); }, "0", {}},
    {"mutex: handle 0 is not taken", "", 0, [] { return Number(NamedMutexTake(0)); }, "0", {}},
    {"semaphore: handle -1 is not given", "", 0, [] { return Number(NamedSemaphoreGive(-1)); }, "0", {}},
    {"segment: not made", "shmget", 1, [] { return Pointed(ShMNew(KEY, 1)); }, "null", {NOT_MADE}},
    {"segment: made, not attached", "shmat", 1, [] { return Pointed(ShMNew(KEY, 1)); }, "null", {NOT_MADE}},
    {"segment: key 0", "", 0, [] { return Pointed(ShMNew(0, 1)); }, "null", {}},
    {"segment: length 0", "", 0, [] { return Pointed(ShMNew(KEY, 0)); }, "null", {}},
    {"opener: no segment", "shmget", 1, [] { return Number(Queue(1, ID).IsValid()); }, "0", {NOT_OPENED}},
    {"opener: not attached", "shmat", 1, [] { return Number(Queue(1, ID).IsValid()); }, "0", {NOT_OPENED}},
    {"opener: size not told", "shmctl", 1, [] { return Number(Queue(1, ID).IsValid()); }, "0", {NOT_OPENED}},
    {"creator: queue exists", "", 0, [] { return Number(Queue(1, ID, 16U).IsValid()); }, "0", {NOT_MADE}},
    {"creator: one byte too large", "", 0, [] { return Number(Queue(1, 6, INT_MAX).IsValid()); }, "0", {NOT_MADE}},
    {"creator: far too large", "", 0, [] { return Number(Queue(1, 6, UINT_MAX).IsValid()); }, "0", {NOT_MADE}},
    {"opener's send: one take fails", "semop", 1, [] { return Sent(*opener); }, "sent, valid, 58 free", {NOT_TAKEN}},
    {"opener's send: two takes fail", "semop", 2, [] { return Sent(*opener); }, "not sent, valid, 64 free", {NOT_TAKEN, NOT_TAKEN}},
    {"opener's send: one give fails", "semctl SETVAL", 1, [] { return Sent(*opener); }, "sent, valid, 52 free", {NOT_GIVEN}},
    {"creator's send: one take fails", "semop", 1, [] { return Sent(*creator); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_MADE}},
    {"receive: take fails", "semop", 1, [] { return opener->Receive(1); }, "failed", {}},
    {"send: null", "sem", 9, [] { return Number(opener->Send(nullptr, 1)); }, "0", {}},
    {"send: negative length", "sem", 9, [] { return Number(opener->Send("", -1)); }, "0", {}},
    {"receive: null", "sem", 9, [] { return Number(opener->Recv(nullptr, 1)); }, "-1", {}},
    {"receive: negative length", "sem", 9, [] { return Number(opener->Recv(&byte, -1)); }, "-1", {}},
    {"print", "", 0, [] { creator->Print(); return Number(1); }, "1", {PRINTED}},
};
// clang-format on

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
      SCOPED_TRACE(testing::Message() << row.name << ", level " << level);
      HostPrepare(true);
      VornUtilsVerbositySet(level);
      int times = row.times;
      Ipc().fails = [&](const std::string& call) {
        return call.rfind(row.refused, 0) == 0 && times-- > 0;
      };
      EXPECT_EQ(row.act(), row.result);
      std::string lines;
      for (const Line& line : row.lines)
        lines += line.level <= level ? line.text : "";
      EXPECT_EQ(Script().printed, lines);
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
        ShMDelete(ShMNew(static_cast<int>(QueueKeyGet(ID)), 25), 0);
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
    for (int attempt = 1; attempt <= 6; ++attempt) {  // node, object and its parts, handle
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
  const Queue next(1, ID, 64U);
  EXPECT_EQ(opener->Send("ab", 2), 0) << "destroyed for good";
}

TEST_F(IpcFault, FailedReceiveTellsWhyInErrno) {
  HostPrepare(true);
  Ipc().fails = [](const std::string& call) { return call.rfind("semop", 0) == 0; };
  EXPECT_EQ(opener->Recv(&byte, 1), -1);
  EXPECT_EQ(errno, ENOSPC) << "what the script refuses with";
}

TEST_F(IpcFault, EachFailedAllocationOfANewOpeningIsOneFailedSend) {
  for (const int failing : {1, 2}) {  // record, handle
    HostPrepare(true);
    int times = 1;
    Ipc().fails = [&](const std::string& call) {
      return call.rfind("semop", 0) == 0 && times-- > 0;
    };
    System().allocations = 0;
    System().failingAllocation = failing;
    EXPECT_EQ(opener->Send("ab", 2), 0) << failing;
    System().failingAllocation = 0;
    EXPECT_EQ(opener->Send("ab", 2), 1) << failing;
    EXPECT_EQ(Ipc().attached, 0) << "as many as before";
  }
}

TEST_F(IpcFault, DestroyThatMayNotRemoveTheSetsRemovesTheSegment) {
  HostPrepare(true);
  creator.reset();
  Ipc().fails = [](const std::string& call) { return call.rfind("semctl IPC_RMID", 0) == 0; };
  opener->Destroy();
  EXPECT_EQ(HostText(), "2/0");
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
