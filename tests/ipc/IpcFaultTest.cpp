#include "ipc/IpcHost.h"
#include "ipc/ShmMsgQManager.h"
#include "ipc/internal/QueueLayout.h"
#include "support/Messages.h"
#include "support/ScriptedIpc.h"

#include <climits>
#include <memory>
#include <thread>
#include <utility>

namespace {

constexpr int KEY = 99;
constexpr int ID = 5;
constexpr int SEGMENT_KEY = static_cast<int>(QueueKeyGet(ID));
constexpr int MUTEX_KEY = static_cast<int>(QueueMutexKeyGet(ID));
std::unique_ptr<Queue> creator;
std::unique_ptr<Queue> opener;
ShmMsgQ* managed = nullptr;

enum Before {
  NOTHING,  // on the host
  SEGMENT,  // of a queue, without its sets
  QUEUE,    // opened by `creator` and `opener`
  STALE,    // the same, whose mutex has been removed
  MANAGED,  // a queue in the registry
};

class IpcFault : public IpcHost {
protected:
  void TearDown() override {
    ObjectsDelete();
    ScriptsReset();
    IpcHost::TearDown();
  }
  static void ObjectsDelete() {
    creator.reset();
    opener.reset();
    ShmMsgQManager::Destroy();
    EXPECT_EQ(Ipc().attached, 0) << "segments attached";
    EXPECT_EQ(BlocksHeld(), 0);
  }
  static void ScriptsReset() {
    Scripted::Reset();
    IpcReset();
  }
  // A host that does not number its next set 0.
  static void HostPrepare(Before before) {
    ObjectsDelete();
    ScriptsReset();
    HostFresh();
    SemaphoreMutexDelete(SemaphoreMutexNew(KEY, 0));
    if (before == SEGMENT)
      ShMDelete(ShMNew(SEGMENT_KEY, QueueSegmentLength(64)), 0);
    if (before == QUEUE || before == STALE) {
      creator = std::make_unique<Queue>(1, ID, 64U);
      opener = std::make_unique<Queue>(1, ID);
    }
    if (before == STALE)
      NamedMutexDelete(creator->_mutexId);
    ShmMsgQManager::Initialize();
    managed = before == MANAGED ? ShmMsgQManager::New(ID, 64) : nullptr;
    Ipc().calls.clear();
    Script().calls.clear();
    System().allocations = 0;
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

std::string SegmentVanish() {
  Ipc().fails = [](const std::string& call) {
    return call.rfind("shmat", 0) == 0 && shmctl(creator->_shm->id, IPC_RMID, nullptr) != 0;
  };
  return Pointed(ShMOpen(SEGMENT_KEY));
}

std::string ReplacedWhileReceiving() {
  Ipc().fails = [](const std::string& call) {
    return call.rfind("semop", 0) == 0 && opener->Initialize() == 1;
  };
  return opener->Receive(1);
}

std::string Number(int value) { return std::to_string(value); }

const Message NO_SET{0, "VORN: unable to allocate named semaphore\n"};
const Message NOT_TAKEN{2, "VORN: TakeMutex failed.\n"};
const Message NOT_MADE{0, "VORN: shared memory: unable to create new shared handle\n"};
const Message NOT_OPENED{
    2, "VORN: shared memory: unable to open shared handle, which may not exist any more\n"};

/// What is said of a failure, beside a queue.
struct Case {
  const char* name;
  const char* refused;  // the first calls that begin with this are refused
  int times;            // so many of them
  std::string (*act)();
  const char* result;
  std::vector<Message> lines;
  int reason = 0;  // in errno, where one is promised
};

char byte;

// clang-format off
const Case CASES[] = {
    {"set: neither opened nor made", "semget", 2, [] { return Number(SemaphoreMutexNew(KEY, 0)); }, "0", {NO_SET}, ENOSPC},
    {"semaphore: neither opened nor made", "semget", 2, [] { return Number(NamedSemaphoreNew(KEY, 0)); }, "0", {NO_SET, NO_SET}, ENOSPC},
    {"mutex: neither opened nor made", "semget", 2, [] { return Number(NamedMutexNew(KEY)); }, "0", {NO_SET}, ENOSPC},
    {"set: key 0", "", 0, [] { return Number(SemaphoreMutexNew(0, 0)); }, "0", {NO_SET}, EINVAL},
    {"semaphore: made, no value", "semctl SETVAL", 1, [] { return Number(NamedSemaphoreNew(KEY, 0)); }, "0", {{0, "VORN: unable to allocate semaphore inti\n"}, NO_SET}, ENOSPC},
    {"mutex: exists, keeps its value", "", 0, [] { return Number(NamedSemaphoreNew(MUTEX_KEY, 0) == creator->_mutexId ? ValueGet(creator->_mutexId) : -1); }, "1", {}},
    {"mutex: not removed", "semctl IPC_RMID", 1, [] { return Number(NamedMutexDelete(creator->_mutexId)); }, "0", {{1, "VORN: Failed to close named semaphore.\n"}}, ENOSPC},
    {"set: handle 0 is not removed", "sem", 9, [] { return Number(SemaphoreMutexDelete(0)); }, "1", {}},
    {"mutex: handle -1 is not removed", "sem", 9, [] { return Number(NamedMutexDelete(-1)); }, "1", {}},
    {"semaphore: not taken", "semop", 1, [] { return Number(NamedSemaphoreTake(creator->_mutexId)); }, "0", {}, ENOSPC},
    {"mutex: not given", "semctl", 1, [] { return Number(NamedMutexGive(creator->_mutexId)); }, "0", {}, ENOSPC},
    {"mutex: handle 0 is not taken", "", 0, [] { return Number(NamedMutexTake(0)); }, "0", {}, EINVAL},
    {"semaphore: handle -1 is not given", "", 0, [] { return Number(NamedSemaphoreGive(-1)); }, "0", {}, EINVAL},
    {"segment: made, not attached", "shmat", 1, [] { return Pointed(ShMNew(KEY, 1)); }, "null", {NOT_MADE}},
    {"segment: key 0", "", 0, [] { return Pointed(ShMNew(0, 1)); }, "null", {}},
    {"segment: length 0", "", 0, [] { return Pointed(ShMNew(KEY, 0)); }, "null", {}},
    {"segment: removed between look and attaching", "", 0, SegmentVanish, "null", {NOT_OPENED}},
    {"opener: no segment", "shmget", 1, [] { return Number(Queue(1, ID).IsValid()); }, "0", {NOT_OPENED}},
    {"creator: queue exists", "", 0, [] { return Number(Queue(1, ID, 16U).IsValid()); }, "0", {NOT_MADE}},
    {"creator: one byte too large", "", 0, [] { return Number(Queue(1, 6, INT_MAX).IsValid()); }, "0", {NOT_MADE}},
    {"creator: far too large", "", 0, [] { return Number(Queue(1, 6, UINT_MAX).IsValid()); }, "0", {NOT_MADE}},
    {"opener's send: one take fails", "semop", 1, [] { return Sent(*opener); }, "sent, valid, 58 free", {NOT_TAKEN}},
    {"opener's send: two takes fail", "semop", 2, [] { return Sent(*opener); }, "not sent, valid, 64 free", {NOT_TAKEN, NOT_TAKEN}},
    {"opener's send: one give fails", "semctl SETVAL", 1, [] { return Sent(*opener); }, "sent, valid, 52 free", {{2, "VORN: ReleaseSemaphore failed.\n"}}},
    {"creator's send: one take fails", "semop", 1, [] { return Sent(*creator); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_MADE}},
    {"creator's send: a signal ends the take", "semop", 2, [] { Ipc().error = EINTR; return Sent(*creator); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_MADE}},
    {"creator's send: its mutex is gone", "", 0, [] { NamedMutexDelete(creator->_mutexId); return Sent(*creator); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_MADE, NOT_TAKEN}},
    {"opener's send: the queue is gone", "", 0, [] { creator->Destroy(); return Sent(*opener); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_OPENED, NOT_TAKEN}},
    {"creator: initialised after its end", "", 0, [] { opener.reset(); creator->Destroy(); const int result = creator->Initialize(); return Number(result) + ", the host has " + HostText(); }, "0, the host has 0/0", {}},
    {"creator's next send", "semop", 1, [] { creator->Send("", 0); return Sent(*creator); }, "not sent, invalid, 0 free", {NOT_TAKEN, NOT_MADE}},
    {"send of a derived class: take fails", "semop", 1, [] { return Number(opener->SendInternal("", 0)); }, "3", {NOT_TAKEN}},
    {"manager: list and mutex at the second try", "", 0, [] {
       ShmMsgQManager::Destroy();
       System().failingStep = System().steps + 2;
       ShmMsgQManager::Initialize();
       const int before = System().steps;
       ShmMsgQManager::Initialize();
       return Number(System().steps - before);
     }, "2", {}},
    {"receive: take fails", "semop", 1, [] { return opener->Receive(1); }, "failed", {}, ENOSPC},
    {"send: null", "sem", 9, [] { return Number(opener->Send(nullptr, 1)); }, "0", {}},
    {"send: negative length", "sem", 9, [] { return Number(opener->Send("", -1)); }, "0", {}},
    {"receive: take fails, opened anew meanwhile", "", 0, ReplacedWhileReceiving, "failed", {}, ENOSPC},
    {"receive: null", "sem", 9, [] { return Number(opener->Recv(nullptr, 1)); }, "-1", {}},
    {"receive: negative length", "sem", 9, [] { return Number(opener->Recv(&byte, -1)); }, "-1", {}},
    {"print", "", 0, [] { creator->Print(); return Number(1); }, "1", {{INT_MIN, "Shared Message Queue: id 5 refCount 1\n"}}},
};

/// An operation that tells whether all of it was done. Each of its system calls fails in one try.
struct Operation {
  const char* name;
  Before before;
  bool (*act)();
  const char* refusals;  // calls without which it is not done, each with what the host then has
  const char* done;      // what the host has after all was done, with or without a failed call
  const char* mutex = "";  // how the manager uses its own one when no call fails
};

bool IsEmptied() { return HostText() == "0/0"; }

const char* const OPENING = "shmget 0/1, shmat 0/1, shmctl 0/1, semget 0/1, semctl 1/1, semget 1/1, semctl 2/1";
const char* const RENEWAL = "shmget 1/1, shmat 1/1, shmctl 1/1, semget 1/1, semget 1/1, semctl 2/1, semop 2/1, semctl 2/1";
const char* const REMOVAL = "semctl 1/0, semctl 1/0, shmctl 0/1";
const char* const LOCKED = "KelSemaphoreTake; KelSemaphoreGive";
const char* const LOCK_MADE_ANEW = "KelSemaphoreTake; KelSemaphoreGive; KelSemaphoreDelete; KelSemaphoreMutexNew 0";

const Operation OPERATIONS[] = {
    {"creator", NOTHING, [] { return Queue(1, ID, 64U).IsValid() == 1; }, "shmget 0/0, shmat 0/0, semget 0/0, semctl 1/0, semget 1/0, semctl 2/0", "2/1"},
    {"opener", SEGMENT, [] { return Queue(1, ID).IsValid() == 1; }, OPENING, "2/1"},
    {"creator's send", QUEUE, [] { return creator->Send("ab", 2) == 1; }, "semop 2/1, semctl 2/1", "2/1"},
    {"opener's send", QUEUE, [] { return opener->Send("ab", 2) == 1; }, "", "2/1"},
    {"opener's send, opened anew", STALE, [] { return opener->Send("ab", 2) == 1; }, RENEWAL, "2/1"},
    {"creator's end", QUEUE, [] { opener.reset(); creator->Destroy(); return IsEmptied(); }, REMOVAL, "0/0"},
    {"opener's end", QUEUE, [] { creator.reset(); opener->Destroy(); return IsEmptied(); }, REMOVAL, "0/0"},
    {"manager's Initialize", NOTHING, [] { ShmMsgQManager::Destroy(); return ShmMsgQManager::Initialize() == 1; }, "", "0/0", LOCK_MADE_ANEW},
    {"manager's Initialize again", MANAGED, [] { return ShmMsgQManager::Initialize() == 1; }, "", "2/1"},
    {"manager's New", NOTHING, [] { return ShmMsgQManager::New(ID, 64) != nullptr; }, "shmget 0/0, shmat 0/0, semget 0/0, semctl 1/0, semget 0/0, semctl 1/0", "2/1", LOCKED},
    {"manager's Open", SEGMENT, [] { return ShmMsgQManager::Open(ID) != nullptr; }, OPENING, "2/1", LOCKED},
    {"manager's Create", SEGMENT, [] { return ShmMsgQManager::Create(ID) == 1; }, "shmget 0/1, shmat 0/1, shmctl 0/1, semget 0/1, semctl 1/1, semget 0/1, semctl 1/1", "2/1", LOCKED},
    {"manager's Acquire", MANAGED, [] { return ShmMsgQManager::Acquire(ID) == managed; }, "", "2/1", LOCKED},
    {"manager's Send", MANAGED, [] { return ShmMsgQManager::Send(ID, "ab", 2) == 1; }, "semop 2/1, semctl 2/1", "2/1", LOCKED},
    {"manager's Print", MANAGED, [] { ShmMsgQManager::Print(); return true; }, "", "2/1", LOCKED},
    {"manager's Release", MANAGED, [] { ShmMsgQManager::Release(managed, 1); return IsEmptied(); }, REMOVAL, "0/0", LOCKED},
    {"manager's Release of null", MANAGED, [] { ShmMsgQManager::Release(nullptr, 1); return true; }, "", "2/1"},
    {"manager's Release by id", MANAGED, [] { ShmMsgQManager::Release(ID); return true; }, "", "2/1", LOCKED},
    {"manager's ReleaseAll", MANAGED, [] { ShmMsgQManager::ReleaseAll(); return IsEmptied(); }, REMOVAL, "0/0", LOCKED},
};
// clang-format on

}  // namespace

TEST_F(IpcFault, EachFailureHasItsResultAndItsLines) {
  for (const Case& row : CASES) {
    SCOPED_TRACE(row.name);
    MessagesExpect(row.lines, [&] {
      const int level = VORNUtilsVerbosity;
      HostPrepare(QUEUE);
      VornUtilsVerbositySet(level);
      int times = row.times;
      Ipc().fails = [&](const std::string& call) {
        return call.rfind(row.refused, 0) == 0 && times-- > 0;
      };
      errno = 0;
      EXPECT_EQ(row.act(), row.result);
      if (row.reason != 0) {
        EXPECT_EQ(errno, row.reason);
      }
      Ipc().fails = nullptr;
      ObjectsDelete();
    });
  }
}

// Fails the first call, the second, and so on, until none is left to fail. Of the reasons that a
// call can have, only `Destroy` looks at one: a test of its own.
TEST_F(IpcFault, EachSystemCallThatFailsIsARefusalThatLeavesWhatIsPromised) {
  for (const Operation& row : OPERATIONS) {
    std::string refusals;
    std::string failed = "one";
    for (int n = 1; !failed.empty(); ++n) {
      SCOPED_TRACE(testing::Message() << row.name << ", call " << n);
      HostPrepare(row.before);
      int calls = 0;
      failed.clear();
      Ipc().fails = [&](const std::string& call) {
        const bool isNth = call != "shmdt" && ++calls == n;  // it cannot fail
        failed = isNth ? call.substr(0, call.find(' ')) : failed;
        return isNth;
      };
      const bool isDone = row.act();
      Ipc().fails = nullptr;
      if (isDone)
        EXPECT_EQ(HostText(), row.done) << "beside a failed " << failed;
      else
        refusals += (refusals.empty() ? "" : ", ") + failed + " " + HostText();
      EXPECT_EQ(Script().mutexTakes, Script().mutexGives);
      if (failed.empty()) {
        EXPECT_EQ(CallsDrain(), row.mutex);
      }
      ObjectsDelete();
    }
    EXPECT_EQ(refusals, row.refusals) << row.name;
  }
}

TEST_F(IpcFault, EachAllocationThatFailsIsARefusalThatLeavesAllAsItWas) {
  for (const Operation& row : OPERATIONS) {
    bool hasFailed = true;
    for (int n = 1; hasFailed; ++n) {
      SCOPED_TRACE(testing::Message() << row.name << ", allocation " << n);
      HostPrepare(row.before);
      const std::string before = HostText();
      System().failingAllocation = n;
      const bool isDone = row.act();
      hasFailed = System().allocations >= n;
      EXPECT_NE(isDone, hasFailed);
      EXPECT_EQ(HostText(), hasFailed ? before : row.done);
      EXPECT_EQ(Script().mutexTakes, Script().mutexGives);
      System().failingAllocation = 0;
      if (hasFailed) {
        EXPECT_TRUE(row.act()) << "tried again";
      }
      ObjectsDelete();
    }
  }
}

TEST_F(IpcFault, SendIsThreeSystemCallsAndRecvOfAMessageNone) {
  HostPrepare(QUEUE);
  EXPECT_EQ(opener->Send("ab", 2), 1);
  const std::string mutex = std::to_string(creator->_mutexId);
  const std::string semaphore = std::to_string(creator->_semaphoreId);
  EXPECT_EQ(Ipc().calls, (std::vector<std::string>{"semop " + mutex + " 0 -1 0",
                                                   "semctl SETVAL " + semaphore + " 0 1",
                                                   "semctl SETVAL " + mutex + " 0 1"}));
  Ipc().calls.clear();
  EXPECT_EQ(creator->Recv(nullptr, 0), 0) << "removes the message";
  EXPECT_EQ(creator->SpaceGet(), 64);
  EXPECT_TRUE(Ipc().calls.empty());
}

TEST_F(IpcFault, CreatorEmptiesWhatAnotherSentTooEarly) {
  HostPrepare(NOTHING);
  bool isEarly = true;
  Ipc().fails = [&isEarly](const std::string& call) {
    if (call.rfind("semget", 0) == 0 && std::exchange(isEarly, false)) {
      EXPECT_EQ(Queue(1, ID).Send("early", 5), 1);
    }
    return false;
  };
  creator = std::make_unique<Queue>(1, ID, 64U);
  EXPECT_EQ(creator->SpaceGet(), 64);
}

// A creator whose send was interrupted knows what it has made, and removes nothing of another's.
TEST_F(IpcFault, CreatorThatLostItsQueueEndsItsReceiverAndRemovesWhatItMade) {
  for (const bool isMadeByAnother : {false, true}) {
    HostPrepare(QUEUE);
    opener.reset();
    const std::string take = "semop " + std::to_string(creator->_mutexId) + " 0 -1 0";
    Ipc().fails = [&](const std::string& call) { return call == take; };
    std::string received;
    std::thread receiver([&] { received = creator->Receive(1); });
    ASSERT_TRUE(WaiterAwait(creator->_semaphoreId));
    EXPECT_EQ(creator->Send("", 0), 0);
    receiver.join();
    EXPECT_EQ(received, "failed");
    Ipc().fails = nullptr;
    EXPECT_EQ(HostText(), "2/1");
    if (isMadeByAnother) {
      Queue(1, ID).Destroy();
      opener = std::make_unique<Queue>(1, ID, 8U);
    }
    Ipc().calls.clear();
    creator->Destroy();
    EXPECT_EQ(Ipc().calls.back().substr(0, 6), isMadeByAnother ? "shmget" : "shmctl");
    EXPECT_EQ(HostText(), isMadeByAnother ? "2/1" : "0/0");
  }
}

TEST_F(IpcFault, ClassOfAUsersOwnSeesNoHandleAfterTheEndAndOneAttachmentBefore) {
  HostPrepare(QUEUE);
  EXPECT_EQ(opener->Initialize(), 1);
  EXPECT_EQ(Ipc().attached, 2) << "the creator's and the opener's second one";
  opener->Destroy();
  EXPECT_EQ(opener->_mutexId, 0);
  EXPECT_EQ(opener->_semaphoreId, 0);
  EXPECT_EQ(opener->_shm, nullptr);
  EXPECT_EQ(opener->_header, nullptr);
}

// Where several threads use an object, the receiver still gets what waited in the queue before.
TEST_F(IpcFault, OpenerThatLostItsQueueFindsTheNextOneAndGivesUpWhatALoneThreadDidNotReceive) {
  HostPrepare(QUEUE);
  EXPECT_EQ(opener->Send("a", 1), 1);
  EXPECT_EQ(opener->Receive(9), "a");
  EXPECT_EQ(opener->Send("old", 3), 1);
  creator->Destroy();
  EXPECT_EQ(opener->Send("ab", 2), 0) << "no queue";
  EXPECT_EQ(opener->IsValid(), 0);
  creator = std::make_unique<Queue>(1, ID, 64U);
  EXPECT_EQ(opener->Send("new", 3), 1);
  EXPECT_EQ(opener->IsValid(), 1);
  EXPECT_EQ(opener->Receive(9), "new");
  opener->Destroy();
  const Queue next(1, ID, 64U);
  EXPECT_EQ(opener->Send("ab", 2), 0) << "destroyed for good";
  Queue early(1, 6);
  const Queue late(1, 6, 64U);
  EXPECT_EQ(early.Send("ab", 2), 0) << "it never had a queue that it could lose";
}

// Another thread is in the middle of a send. If the mutex cannot be removed nothing wakes it, and
// `Destroy` does not wait; if somebody else has removed it, it does.
TEST_F(IpcFault, NothingIsUnmappedUnderASendThatDestroyCannotEnd) {
  for (const int error : {EPERM, EACCES, EINVAL, EIDRM}) {  // of the mutex's removal
    SCOPED_TRACE(std::strerror(error));
    const bool waits = error == EINVAL || error == EIDRM;
    HostPrepare(QUEUE);
    opener.reset();
    const int mutex = creator->_mutexId;
    ASSERT_EQ(NamedMutexTake(mutex), 1);
    int sent = 1;
    std::thread sender([&] { sent = creator->Send("ab", 2); });
    ASSERT_TRUE(WaiterAwait(mutex));
    Ipc().error = error;
    const std::string removal = "semctl IPC_RMID " + std::to_string(mutex) + " 0";
    Ipc().fails = [&](const std::string& call) { return call == removal; };
    std::thread giver([&] {
      usleep(20000);  // the time that a fault has to show
      if (waits)
        NamedMutexGive(mutex);
    });
    const auto end = [waits] {
      creator->Destroy();
      EXPECT_EQ(Ipc().attached, waits ? 0 : 1);
    };
    std::thread others[] = {std::thread(end), std::thread(end)};
    end();
    EXPECT_EQ(HostText(), waits ? "1/0" : "1/1");
    for (std::thread& other : others)
      other.join();
    giver.join();
    NamedMutexGive(mutex);
    sender.join();
    EXPECT_EQ(sent, 0) << "the semaphore was removed";
    EXPECT_EQ(HostText(), "1/0") << "the last one detaches";
  }
}

// Whatever takes its attachment from a send: it goes with the send, not before.
TEST_F(IpcFault, NothingIsUnmappedUnderASendWhoseAttachmentIsReplaced) {
  // clang-format off
  const struct { const char* name; bool isReceived, isRemoved; int times, attached; } rows[] = {
      {"by the same segment", true, false, 1, 3},
      {"nobody receives", false, false, 1, 3},
      {"more often than kept", true, true, 65, 67},
      {"none is kept", false, true, 65, 3},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    HostPrepare(QUEUE);
    EXPECT_EQ(opener->Send("", 0), 1);
    EXPECT_EQ((row.isReceived ? opener : creator)->Recv(nullptr, 0), 0);
    const int mutex = opener->_mutexId;
    ASSERT_EQ(NamedMutexTake(mutex), 1);
    std::thread sender([] { EXPECT_EQ(opener->Send("ab", 2), 1); });
    ASSERT_TRUE(WaiterAwait(mutex));
    for (int i = 0; i < row.times; ++i) {
      if (row.isRemoved) {
        OffsetStore(&opener->_header->writeOffset, MESSAGE_LENGTH_SIZE);  // a message of no bytes
        shmctl(opener->_shm->id, IPC_RMID, nullptr);
        ShMDelete(ShMNew(static_cast<int>(QueueKeyGet(ID)), QueueSegmentLength(64)), 0);
      }
      EXPECT_EQ(opener->Initialize(), 1);
    }
    EXPECT_EQ(Ipc().attached, row.attached);
    NamedMutexGive(mutex);
    sender.join();
    EXPECT_EQ(Ipc().attached, row.attached - 1);
  }
}

TEST_F(IpcFault, DestroyRemovesWhatARenewalMakesMeanwhile) {
  HostPrepare(STALE);
  creator.reset();
  std::thread end;
  Ipc().fails = [&end](const std::string& call) {
    if (call.rfind("semget", 0) == 0 && !end.joinable()) {
      end = std::thread([] { opener->Destroy(); });
      usleep(20000);  // the time that a fault has to show
    }
    return false;
  };
  opener->Send("ab", 2);
  end.join();
  EXPECT_EQ(HostText(), "0/0");
}

TEST_F(IpcFault, SetNumbered0IsGivenUpForAnother) {
  const int handle = SemaphoreMutexNew(KEY, 7);
  ASSERT_GT(handle, 0);
  EXPECT_EQ(Ipc().calls,
            (std::vector<std::string>{"semget 63 1 0", "semget 63 1 3664", "semctl IPC_RMID 0 0",
                                      "semget 63 1 3664",
                                      "semctl SETVAL " + std::to_string(handle) + " 0 7"}));
  EXPECT_EQ(ValueGet(0), -1);
  EXPECT_EQ(ValueGet(handle), 7);
  ASSERT_TRUE(HostFresh());
  Ipc().fails = [](const std::string& call) { return call == "semctl IPC_RMID 0 0"; };
  Child other([] {  // capturing opens files that this program cannot close
    testing::internal::CaptureStdout();
    const int set = SemaphoreMutexNew(KEY, 7);
    return testing::internal::GetCapturedStdout() == "Unable to delete semaphore\n" ? set : -1;
  });
  EXPECT_EQ(other.Wait(), 0);
}
