#include "ipc/IpcHost.h"
#include "ipc/internal/QueueLayout.h"
#include "support/Namespace.h"
#include "vorndiag/QueueWatch.h"

#include <regex>

namespace {

using Vorndiag = IpcHost;

struct Outcome {
  int code;
  std::string text;
  double seconds;
  bool Says(const std::string& part) const { return text.find(part) != std::string::npos; }
};

std::size_t CountOf(const std::string& text, const char* part) {
  const std::regex pattern(part);
  return static_cast<std::size_t>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), pattern), {}));
}

const char* const PROC_HIDDEN = "unshare -m sh -c 'mount -t tmpfs none /proc && exec \"$@\"' sh ";

// Runs the built command; `before` is what the shell does first.
Outcome DiagRun(const std::string& arguments, const std::string& before = "exec ") {
  const auto begin = std::chrono::steady_clock::now();
  FILE* pipe = popen(("exec 2>&1; " + before + VORNDIAG " " + arguments).c_str(), "r");
  Outcome outcome{-1, "", 0};
  for (int byte = 0; pipe != nullptr && (byte = std::fgetc(pipe)) != EOF;)
    outcome.text += static_cast<char>(byte);
  if (pipe != nullptr)
    outcome.code = WEXITSTATUS(pclose(pipe));
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return outcome;
}

void SegmentMake(std::uint32_t key, std::size_t size, std::uint32_t length) {
  const int id = shmget(static_cast<key_t>(key), size, IPC_CREAT | 0664);
  void* base = shmat(id, nullptr, 0);
  std::memcpy(base, &length, sizeof length);
  shmdt(base);
}

// A process that took the mutex of queue 7 and then ends, is stopped, or goes on.
enum class Fate { ENDED, STOPPED, ALIVE };

void HolderAwait(Child* holder, int mutex, Fate fate) {
  ASSERT_TRUE(Await([mutex] { return ValueGet(mutex) == 0; }));
  int status = 0;
  if (fate == Fate::ENDED)
    holder->Wait();
  else if (fate == Fate::STOPPED)
    waitpid(holder->pid, &status, WUNTRACED);
}

int HolderRun(int mutex, Fate fate) {
  NamedMutexTake(mutex);
  if (fate == Fate::STOPPED)
    raise(SIGSTOP);
  return fate == Fate::ENDED ? 0 : pause();
}

}  // namespace

TEST_F(Vorndiag, MutexOfAHolderThatMayLiveIsGivenByForceOnly) {
  struct Row {
    const char* name;
    Fate fate;
    bool isProcHidden;
    const char* verdict;
    int giveCode;
    int givenValue;
  };
  const Row rows[] = {
      {"dead", Fate::ENDED, false, "a sender died", 0, 1},
      {"stopped", Fate::STOPPED, false, "kill -CONT", 1, 0},
      {"alive", Fate::ALIVE, false, "which lives", 1, 0},
      {"dead, no /proc", Fate::ENDED, true, "a sender died", 0, 1},
      {"alive, no /proc", Fate::ALIVE, true, "which /proc does not show", 1, 0},
  };
  const bool canHide = std::system("unshare -m mount -t tmpfs none /proc 2>/dev/null") == 0;
  Queue queue(1, 7, 16);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (row.isProcHidden && !canHide)
      GTEST_SKIP() << "nothing can be mounted over /proc here";
    const std::string before = row.isProcHidden ? PROC_HIDDEN : "exec ";
    Child holder([&] { return HolderRun(queue._mutexId, row.fate); });
    HolderAwait(&holder, queue._mutexId, row.fate);
    const Outcome look = DiagRun("queue 7", before);
    EXPECT_EQ(look.code, 1);
    EXPECT_TRUE(look.Says(row.verdict)) << look.text;
    const Outcome give = DiagRun("queue 7 --give-mutex", before);
    EXPECT_EQ(give.code, row.giveCode) << give.text;
    EXPECT_EQ(ValueGet(queue._mutexId), row.givenValue) << give.text;
    EXPECT_EQ(DiagRun("queue 7 --give-mutex --force", before).code, 0);
    EXPECT_EQ(ValueGet(queue._mutexId), 1) << "forced";
    NamedMutexGive(queue._mutexId);  // whatever came of it, the next row's holder can take it
  }
  queue.Destroy();
}

TEST_F(Vorndiag, WatchEndsWithALookThatShowsNothingWrong) {
  Queue queue(1, 7, 16);
  NamedMutexTake(queue._mutexId);
  std::vector<QueueWatch> watches{QueueWatchBegin(7)};
  EXPECT_TRUE(VerdictGet(watches[0]).isTrouble);
  NamedMutexGive(queue._mutexId);
  QueuesWatch(&watches);
  EXPECT_FALSE(VerdictGet(watches[0]).isTrouble);
  queue.Destroy();
}

TEST(ProcessLook, WhatAnotherUserOrNamespaceHasIsNotGone) {
  Child stranger([] {
    if (geteuid() == 0 && setuid(65534) != 0)
      return 77;
    return static_cast<int>(ProcessLook(1, 0).state);
  });
  EXPECT_NE(stranger.Wait(), static_cast<int>(ProcessState::GONE));
  Child apart([] {
    if (unshare(CLONE_NEWPID) != 0)
      return 77;
    return Child([] { return static_cast<int>(ProcessLook(1, 0).state); }).Wait();
  });
  const int state = apart.Wait();  // of its child, whose number /proc gives to another process
  if (state == 77)
    GTEST_SKIP() << "no process namespace can be made here";
  EXPECT_EQ(state, static_cast<int>(ProcessState::UNKNOWN));
}

TEST_F(Vorndiag, ReceiverThatADeadSenderDidNotWakeIsWoken) {
  Queue queue(1, 7, 16);
  Child receiver([] {
    char byte = 0;
    return Queue(1, 7).Recv(&byte, 1);
  });
  ASSERT_TRUE(WaiterAwait(queue._semaphoreId));
  OffsetStore(&queue._header->writeOffset, 4);  // an empty message
  EXPECT_TRUE(DiagRun("queue 7").Says("sleeps beside messages"));
  EXPECT_EQ(DiagRun("queue 7 --give-mutex").code, 0);
  ASSERT_TRUE(Await([&] { return semctl(queue._semaphoreId, 0, GETNCNT) == 0; }));
  EXPECT_EQ(receiver.Wait(), 0);
  const Outcome idle = DiagRun("queue 7");
  EXPECT_EQ(idle.code, 0);
  EXPECT_TRUE(idle.Says("nothing wrong, and no receiver waits")) << idle.text;
  queue.Destroy();
}

TEST_F(Vorndiag, QueuesShowsAllThatAreQueuesWithinOneSecond) {
  const Outcome none = DiagRun("queues");
  EXPECT_EQ(none.code, 0) << none.text;
  EXPECT_TRUE(none.Says("no queue"));
  for (const int id : {-5, 40000, 7, 8, 9, 10, 11, 12})
    EXPECT_EQ(Queue(1, id, 100).Send("hello", 5), 1);  // nobody stays attached
  SegmentMake(QueueKeyGet(30), 100, 0);
  SegmentMake(QueueKeyGet(50000), 100, 96);  // a far one without sets is another program's
  const Outcome queues = DiagRun("queues");
  EXPECT_GE(queues.seconds, 0.9);
  EXPECT_LT(queues.seconds, 8);
  EXPECT_EQ(queues.code, 1);
  EXPECT_EQ(CountOf(queues.text, "\n *(-5|40000|7|8|9|10|11|12) .*  1   .* WRONG: nobody is att"),
            8U)
      << queues.text;
  EXPECT_EQ(CountOf(queues.text, "WRONG"), 9U) << queues.text;
  const Outcome queue = DiagRun("queue -5");
  EXPECT_EQ(queue.code, 1);
  EXPECT_GE(queue.seconds, 0.9) << "was not watched";
}

TEST_F(Vorndiag, ForeignSegmentIsOneTroubleAndIsLeftAlone) {
  SegmentMake(QueueKeyGet(30), 100, 4711);
  const Outcome look = DiagRun("queue 30");
  EXPECT_EQ(look.code, 1);
  EXPECT_EQ(CountOf(look.text, "WRONG"), 1U) << look.text;
  EXPECT_EQ(DiagRun("queue 30 --remove").code, 1);
  EXPECT_EQ(HostText(), "0/1");
  EXPECT_EQ(DiagRun("queue 30 --remove --force").code, 0);
  EXPECT_EQ(HostText(), "0/0");
}

TEST_F(Vorndiag, RemoveLeavesNothingAndWrongOptionsDoNothing) {
  Queue queue(1, 7, 16);
  for (const char* wrong : {"queue", "queue seven", "queue 7 --force", "queue 7 --loud",
                            "hosts all", "queue 7 --give-mutex --remove", ""})
    EXPECT_EQ(DiagRun(wrong).code, 2) << wrong;
  EXPECT_EQ(HostText(), "2/1");
  const Outcome removal = DiagRun("queue 7 --remove");
  EXPECT_EQ(removal.code, 0);
  EXPECT_TRUE(removal.Says("1 attached")) << removal.text;
  EXPECT_EQ(ValueGet(queue._mutexId), -1);
  EXPECT_EQ(ValueGet(queue._semaphoreId), -1);
  for (const char* none : {"queue 7", "queue 7 --remove", "queue 7 --give-mutex"})
    EXPECT_EQ(DiagRun(none).code, 3) << none;
}

TEST(VorndiagNic, DefaultTableAndTableWithoutMulticastAreTrouble) {
  NamespaceRun([] {
    const Outcome standIn = DiagRun("nic");
    EXPECT_EQ(standIn.code, 1);
    EXPECT_TRUE(standIn.Says("WRONG: this is not what the host has")) << standIn.text;
    ::Run("ip link set lo up");
    const Outcome loopback = DiagRun("nic");
    EXPECT_EQ(loopback.code, 1);
    EXPECT_TRUE(loopback.Says("WRONG: no interface can multicast")) << loopback.text;
    ::Run("ip link add v0 type veth peer name v1; ip addr add 10.77.1.1/24 dev v0; ip link set v0 "
          "up");
    const Outcome veth = DiagRun("nic");
    EXPECT_EQ(veth.code, 0) << veth.text;
    EXPECT_TRUE(veth.Says("10.77.1.1       up   broadcast -        multicast")) << veth.text;
  });
}

TEST(VorndiagHosts, TroubleInTheListOrARefusalEndsWithOne) {
  struct Row {
    const char* setup;  // of the shell, in a folder of its own
    const char* address;
    int code;
    const char* says;
  };
  const Row rows[] = {
      {":", "10.1.2.3", 3, "no list"},
      {"echo '10.1.0.0/ffff0000 # lab' >$F", "10.1.2.3", 0, "10.1.2.3: admitted"},
      {"echo 10.1.0.0/ffff0000 >$F", "10.2.2.3", 1, "10.2.2.3: REFUSED"},
      {"echo 10.1.0.0/16 >$F", "", 1, "WRONG: a mask is 8"},
      {"echo 10.1.300.1 >$F", "", 1, "WRONG: is not written"},
      {"printf '10.1.2.3\\r\\n' >$F", "10.1.2.3", 1, "10.1.2.3\\x0d"},
      {"export $F=10.1.2.3:10.1.2.3", "10.1.2.3", 0, "from environment variable"},
      {"export $F=10.1.2.3; echo '#' >$F", "10.2.2.3", 0, "an empty list admits everybody"},
      {"export $F=10.1.2.3; ln -s $F $F", "10.1.2.3", 1, "HOSTS cannot be opened"},
      {"export $F=10.1.2.3; mkdir $F", "10.1.2.3", 1, "HOSTS cannot be read"},
  };
  for (const Row& row : rows) {
    const Outcome outcome =
        DiagRun(std::string("hosts peer ") + row.address + "; C=$?; rm -r $D; exit $C",
                std::string("D=$(mktemp -d); cd $D; F=VORN_PEER_HOSTS; ") + row.setup + "; ");
    EXPECT_EQ(outcome.code, row.code) << row.setup << "\n" << outcome.text;
    EXPECT_TRUE(outcome.Says(row.says)) << row.setup << "\n" << outcome.text;
  }
}
