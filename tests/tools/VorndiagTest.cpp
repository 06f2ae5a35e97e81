#include "ipc/IpcHost.h"
#include "ipc/internal/QueueLayout.h"
#include "support/Namespace.h"
#include "vorndiag/QueueWatch.h"

namespace {

using Vorndiag = IpcHost;

// Runs the built command, after what the shell does first.
void DiagExpect(const std::string& arguments, int code, const std::string& part = "",
                const std::string& first = "exec ") {
  SCOPED_TRACE(first + "vorndiag " + arguments);
  FILE* pipe = popen(("exec 2>&1; " + first + VORNDIAG " " + arguments).c_str(), "r");
  std::string text;
  for (char bytes[256]; pipe != nullptr && std::fgets(bytes, sizeof bytes, pipe) != nullptr;)
    text += bytes;
  const int status = pipe != nullptr ? pclose(pipe) : -1;
  EXPECT_EQ(WEXITSTATUS(status), code) << text;
  EXPECT_NE(text.find(part), std::string::npos) << "'" << part << "' is not in\n" << text;
}

void SegmentMake(std::uint32_t key, std::size_t size, std::uint32_t length) {
  void* base = shmat(shmget(static_cast<key_t>(key), size, IPC_CREAT | 0664), nullptr, 0);
  std::memcpy(base, &length, sizeof length);
  shmdt(base);
}

}  // namespace

// The holder gets the signal, 0 for none, while it has the mutex.
TEST_F(Vorndiag, MutexOfAHolderThatMayLiveIsGivenByForceOnly) {
  // clang-format off
  const struct { const char* name; int signal; bool isProcHidden; const char* verdict; int giveCode, givenValue; } rows[] = {
      {"dead", SIGKILL, false, "a sender died", 0, 1},
      {"stopped", SIGSTOP, false, "kill -CONT", 1, 0},
      {"alive", 0, false, "which lives", 1, 0},
      {"dead, no /proc", SIGKILL, true, "a sender died", 0, 1},
      {"alive, no /proc", 0, true, "which /proc does not show", 1, 0},
  };
  // clang-format on
  const char* const hiding = "unshare -m sh -c 'mount -t tmpfs none /proc && exec \"$@\"' sh ";
  const bool canHide = std::system((std::string(hiding) + "true 2>/dev/null").c_str()) == 0;
  Queue queue(1, 7, 16);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
#ifdef VORN_TEST_SANITIZER
    if (row.isProcHidden)
      GTEST_SKIP() << "a sanitizer needs /proc";
#endif
    if (row.isProcHidden && !canHide)
      GTEST_SKIP() << "nothing can be mounted over /proc here";
    const std::string first = row.isProcHidden ? hiding : "exec ";
    Child holder([&] {
      NamedMutexTake(queue._mutexId);
      raise(row.signal);
      return pause();
    });
    ASSERT_TRUE(Await([&] { return ValueGet(queue._mutexId) == 0; }));
    if (row.signal == SIGKILL)
      holder.Wait();
    else if (row.signal == SIGSTOP)
      waitpid(holder.pid, nullptr, WUNTRACED);
    DiagExpect("queue 7", 1, row.verdict, first);
    DiagExpect("queue 7 --give-mutex", row.giveCode, "", first);
    EXPECT_EQ(ValueGet(queue._mutexId), row.givenValue);
    DiagExpect("queue 7 --give-mutex --force", 0, "", first);
    EXPECT_EQ(ValueGet(queue._mutexId), 1) << "forced";
  }
}

TEST_F(Vorndiag, WatchEndsWithALookThatShowsNothingWrong) {
  Queue queue(1, 7, 16);
  NamedMutexTake(queue._mutexId);
  std::vector<QueueWatch> watches{QueueWatchBegin(7)};
  EXPECT_TRUE(VerdictGet(watches[0]).isTrouble);
  NamedMutexGive(queue._mutexId);
  QueuesWatch(&watches);
  EXPECT_FALSE(VerdictGet(watches[0]).isTrouble);
}

TEST(ProcessLook, WhatAnotherUserOrNamespaceHasIsNotGone) {
  const auto look = [] { return static_cast<int>(ProcessLook(1, 0).state); };
  Child stranger([&] { return geteuid() == 0 && setuid(65534) != 0 ? 77 : look(); });
  EXPECT_NE(stranger.Wait(), static_cast<int>(ProcessState::GONE));
  // In the namespace, the child's own number is that which /proc gives to another process.
  Child apart([&] { return unshare(CLONE_NEWPID) != 0 ? 77 : Child(look).Wait(); });
  const int state = apart.Wait();
  if (state == 77)
    GTEST_SKIP() << "no process namespace can be made here";
  EXPECT_EQ(state, static_cast<int>(ProcessState::UNKNOWN));
}

TEST_F(Vorndiag, ReceiverThatADeadSenderDidNotWakeIsWoken) {
  Queue queue(1, 7, 16);
  Child receiver([] { return Queue(1, 7).Receive(1).empty() ? 0 : 1; });
  ASSERT_TRUE(WaiterAwait(queue._semaphoreId));
  OffsetStore(&queue._header->writeOffset, 4);  // an empty message
  DiagExpect("queue 7", 1, "sleeps beside messages");
  DiagExpect("queue 7 --give-mutex", 0, "waking the receiver");
  EXPECT_EQ(receiver.Wait(), 0);
  DiagExpect("queue 7", 0, "nothing wrong, and no receiver waits");
}

TEST_F(Vorndiag, QueuesShowsAllThatAreQueuesWithinOneSecond) {
  DiagExpect("queues", 0, "no queue");
  for (const int id : {-5, 40000, 7, 8, 9, 10, 11, 12})
    EXPECT_EQ(Queue(1, id, 100).Send("hello", 5), 1);  // nobody stays attached
  SegmentMake(QueueKeyGet(30), 100, 0);
  SegmentMake(QueueKeyGet(50000), 100, 96);  // a far one without sets is another program's
  const auto begin = std::chrono::steady_clock::now();
  DiagExpect("queues", 1);
  DiagExpect("queue -5", 1);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time.count(), 1.8) << "one of the two did not watch";
  EXPECT_LT(time.count(), 9) << "one queue was watched after the other";
  const std::string orphan = "^ *(-5|40000|7|8|9|10|11|12) .*  1   .* WRONG: nobody is attached";
  DiagExpect("queues | grep -cE '" + orphan + "'", 0, "8\n");
  DiagExpect("queues | grep -c WRONG", 0, "9\n");
}

TEST_F(Vorndiag, RemoveLeavesNothingAndForeignOrWrongIsRefused) {
  SegmentMake(QueueKeyGet(30), 100, 4711);
  DiagExpect("queue 30 --remove", 1, "NOT removed");
  EXPECT_EQ(HostText(), "0/1");
  DiagExpect("queue 30 --remove --force", 0);
  EXPECT_EQ(HostText(), "0/0");
  Queue queue(1, 7, 16);
  for (const char* wrong : {"queue", "queue seven", "queue 7 --force", "queue 7 --loud",
                            "hosts all", "queue 7 --give-mutex --remove", ""})
    DiagExpect(wrong, 2);
  EXPECT_EQ(HostText(), "2/1");
  DiagExpect("queue 7 --remove", 0, "1 attached");
  EXPECT_EQ(ValueGet(queue._mutexId), -1);
  EXPECT_EQ(ValueGet(queue._semaphoreId), -1);
  for (const char* none : {"queue 7", "queue 7 --remove", "queue 7 --give-mutex"})
    DiagExpect(none, 3);
}

TEST(VorndiagNic, DefaultTableAndTableWithoutMulticastAreTrouble) {
  NamespaceRun([] {
    DiagExpect("nic", 1, "WRONG: this is not what the host has");
    ::Run("ip link set lo up");
    DiagExpect("nic", 1, "WRONG: no interface can multicast");
    ::Run("ip link add v0 type veth peer name v1; ip addr add 10.77.1.1/24 dev v0; ip link set v0 "
          "up");
    DiagExpect("nic", 0, "10.77.1.1       up   broadcast -        multicast");
  });
}

// The shell's setup is done in a folder of its own; $F is the list's file and variable. A file of
// 4094 bytes is the longest that is surely whole.
TEST(VorndiagHosts, TroubleInTheListOrARefusalEndsWithOne) {
  // clang-format off
  const struct { const char *setup, *address; int code; const char* says; } rows[] = {
      {":", "10.1.2.3", 3, "no list"},
      {"echo '10.1.0.0/ffff0000 # lab' >$F", "10.1.2.3", 0, "10.1.2.3: admitted"},
      {"echo 10.1.0.0/ffff0000 >$F", "10.2.2.3", 1, "10.2.2.3: REFUSED"},
      {"echo 10.1.0.0/16 >$F", "", 1, "WRONG: a mask is 8"},
      {"echo 10.1.300.1 >$F", "", 1, "WRONG: is not written"},
      {"printf '10.1.2.3\\r\\n' >$F", "10.1.2.3", 1, "10.1.2.3\\x0d"},
      {"(printf '10.1.2.3 %.0s' $(seq 454); echo 10.1.2.3) >$F", "10.1.2.3", 0, "10.1.2.3: admitted"},
      {"(printf '10.1.2.3 %.0s' $(seq 454); echo 10.1.2.30 10.1.2.4) >$F", "10.1.2.3", 1, "its end may be missing"},
      {"export $F=10.1.2.3:10.1.2.3", "10.1.2.3", 0, "from environment variable"},
      {"export $F=10.1.2.3; echo '#' >$F", "10.2.2.3", 0, "an empty list admits everybody"},
      {"export $F=10.1.2.3; ln -s $F $F", "10.1.2.3", 1, "HOSTS cannot be opened: Too many levels"},
      {"export $F=10.1.2.3; mkdir $F", "10.1.2.3", 1, "HOSTS cannot be read"},
  };
  // clang-format on
  const std::string folder = "D=$(mktemp -d); cd $D; F=VORN_PEER_HOSTS; ";
  for (const auto& row : rows)
    DiagExpect(std::string("hosts peer ") + row.address + "; C=$?; rm -r $D; exit $C", row.code,
               row.says, folder + row.setup + "; ");
}
