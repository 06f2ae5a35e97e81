#include "ipc/internal/QueueLayout.h"
#include "support/Emulator.h"
#include "support/Namespace.h"
#include "tools/Diag.h"
#include "vorndiag/QueueActions.h"
#include "vorndiag/QueueLive.h"

namespace {

using Vorndiag = IpcHost;

void SegmentMake(std::uint32_t key, std::size_t size, std::uint32_t length) {
  void* base = shmat(shmget(static_cast<key_t>(key), size, IPC_CREAT | 0664), nullptr, 0);
  std::memcpy(base, &length, sizeof length);
  shmdt(base);
}

}  // namespace

// The holder gets the signal, 0 for none, while it has the mutex. The looks follow each other
// quickly: that they last a second is another test's matter.
TEST_F(Vorndiag, MutexOfAHolderThatMayLiveIsGivenByForceOnly) {
  // clang-format off
  const struct { const char* name; int signal; const char* verdict; int giveCode, givenValue; } rows[] = {
      {"dead", SIGKILL, "a sender died", EXIT_FINE, 1},
      {"stopped", SIGSTOP, "kill -CONT", EXIT_TROUBLE, 0},
      {"alive", 0, "which lives", EXIT_TROUBLE, 0},
  };
  // clang-format on
  Queue queue(1, 7, 16);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
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
    std::vector<QueueWatch> watches{QueueWatchBegin(7)};
    QueuesWatch(&watches, std::chrono::milliseconds(5));
    const std::string line = VerdictGet(watches[0]).lines[0];
    EXPECT_NE(line.find(row.verdict), std::string::npos) << line;
    EXPECT_EQ(MutexGiveBack(watches[0], false).code, row.giveCode);
    EXPECT_EQ(ValueGet(queue._mutexId), row.givenValue);
    EXPECT_EQ(MutexGiveBack(watches[0], true).code, EXIT_FINE);
    EXPECT_EQ(ValueGet(queue._mutexId), 1) << "forced";
    QueuesWatch(&watches, std::chrono::milliseconds(5));
    EXPECT_FALSE(VerdictGet(watches[0]).isTrouble) << "the last look counts";
  }
}

// One that may be healed, one whose holder lives, and one whose receiver only has to be woken.
TEST_F(Vorndiag, HealGivesWhatIsCertainlyDeadWakesWhoSleepsAndNothingElse) {
  Queue dead(1, 7, 16), held(1, 8, 16), asleep(1, 9, 16);
  Child sender([&] { return NamedMutexTake(dead._mutexId) != 0 ? 0 : 1; });
  ASSERT_EQ(sender.Wait(), 0);
  NamedMutexTake(held._mutexId);
  const std::string holder = "held by pid " + std::to_string(sender.pid) + ", gone";
  DiagExpect("queue 7 --watch --looks 1", 1, holder);
  int offset = 0;
  for (const char* command : {"queues --heal --json", "queue 9 --give-mutex --json"}) {
    Child receiver([] { return Queue(1, 9).Receive(1).empty() ? 0 : 1; });
    ASSERT_TRUE(WaiterAwait(asleep._semaphoreId));
    if (VORN_TEST_EMULATOR[0] == '\0')  // whose own calls the kernel shows
      DiagExpect("queue 9 --watch --looks 1", 0,
                 "to receive waits pid " + std::to_string(receiver.pid));
    offset += 4;  // an empty message
    OffsetStore(&asleep._header->writeOffset, offset);
    DiagExpect(command, 0, R"("what":"waking the receiver")");
    EXPECT_EQ(receiver.Wait(), 0);
  }
  EXPECT_EQ(ValueGet(dead._mutexId), 1);
  EXPECT_EQ(ValueGet(held._mutexId), 0);
  DiagExpect("queue 8 --heal", 0, "nothing to heal");
}

// What is sent and received between two looks is counted, unless the ring may have gone round.
TEST_F(Vorndiag, MeterCountsWhatWasSentAndTheMostThatWaited) {
  Queue queue(1, 7, 100);
  QueueMeter meter(7);
  for (int sent = 0; sent < 5; ++sent) {
    queue.Send("hello", 5);
    meter.Look();
    queue.Receive(5);
  }
  EXPECT_EQ(meter.TrafficGet().messages, 5);
  EXPECT_EQ(meter.TrafficGet().bytes, 25);
  EXPECT_EQ(meter.HighestGet(), 9);
  EXPECT_FALSE(meter.TrafficGet().isLeast);
  for (int sent = 0; sent < 6; ++sent)
    queue.Send("hello", 5);
  meter.Look();
  EXPECT_TRUE(meter.TrafficGet().isLeast) << "54 of 101 bytes in one step";
}

// On a terminal, which `script` makes.
TEST_F(Vorndiag, RemoveAsksAPersonUnlessSheSaidYes) {
  // clang-format off
  const struct { const char *answer, *option; int code; const char* left; } rows[] = {
      {"n", "", 1, "2/1"},
      {"y", "", 0, "0/0"},
      {"n", "--yes", 0, "0/0"},
  };
  // clang-format on
  for (const auto& row : rows) {
    ASSERT_TRUE(HostFresh());
    { const Queue made(1, 7, 16); }
    const std::string remove = std::string(VORNDIAG " queue 7 --remove ") + row.option;
    Program("script -qec '" + remove + "' /dev/null", std::string("echo ") + row.answer + " | ")
        .Expect(row.code);
    EXPECT_EQ(HostText(), row.left) << row.answer << row.option;
  }
}

// The holder is this process, and who looks is in a process namespace of its own.
TEST_F(Vorndiag, MutexOfAHiddenHolderIsGivenByForceOnly) {
  const std::string apart = "exec unshare --pid --fork ";
  if (std::system("unshare --pid --fork true 2>/dev/null") != 0)
    GTEST_SKIP() << "no process namespace can be made here";
  Queue queue(1, 7, 16);
  ASSERT_EQ(NamedMutexTake(queue._mutexId), 1);
  DiagExpect("queue 7 --give-mutex", 1, "a process of another process namespace", apart);
  EXPECT_EQ(ValueGet(queue._mutexId), 0);
  DiagExpect("queue 7 --give-mutex --force", 0, "", apart);
  EXPECT_EQ(ValueGet(queue._mutexId), 1);
}

TEST(ProcessLook, WhatAnotherUserOrNamespaceHasIsNotGone) {
  const auto look = [] { return static_cast<int>(ProcessLook(1, 0).state); };
  Child stranger([] {
    std::ignore = setuid(65534);  // refused where no other user is known
    return ProcessLook(1, 0).state == ProcessState::GONE ? 1 : 0;
  });
  EXPECT_EQ(stranger.Wait(), 0);
  // In the namespace, the child's own number is that which /proc gives to another process.
  Child apart([&] { return unshare(CLONE_NEWPID) != 0 ? 77 : Child(look).Wait(); });
  const int state = apart.Wait();
  if (state == 77)
    GTEST_SKIP() << "no process namespace can be made here";
  EXPECT_EQ(state, static_cast<int>(ProcessState::UNKNOWN));
}

TEST_F(Vorndiag, QueuesShowsAllThatAreQueues) {
  DiagExpect("queues", 0, "no queue");
  for (const int id : {-5, 40000, 7, 8, 9, 10, 11, 12})
    EXPECT_EQ(Queue(1, id, 100).Send("hello", 5), 1);  // nobody stays attached
  SegmentMake(QueueKeyGet(30), 100, 0);
  SegmentMake(QueueKeyGet(50000), 100, 96);  // a far one without sets is another program's
  DiagExpect("queues", 1);
  DiagExpect("queue -5", 1);
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
                            "hosts all", "queue 7 --give-mutex --remove", "queues --every 2",
                            "queue 7 --yes", "decode time 8000000", "decode time 0x80000000",
                            "decode date 80", "mcast check 10.1.2.3", "mcast send 239.1.2.3:0", ""})
    DiagExpect(wrong, 2);
  EXPECT_EQ(HostText(), "2/1");
  DiagExpect("queue 7 --remove", 0, "1 attached");
  EXPECT_EQ(HostText(), "0/1") << "the segment is attached still";
  for (const char* none : {"queue 7", "queue 7 --remove", "queue 7 --give-mutex"})
    DiagExpect(none, 3);
}

TEST(VorndiagNic, DefaultTableAndTableWithoutMulticastAreTrouble) {
  NamespaceRun([] {
    DiagExpect("nic", 1, "WRONG: this is not what the host has");
    ::Run("ip link set lo up");
    DiagExpect("nic", 1, "WRONG: no interface can multicast");
    ::Run("ip link add v0 up type veth peer name v1; ip addr add 10.77.1.1/24 dev v0");
    DiagExpect("nic", 0, "10.77.1.1       up   broadcast -        multicast");
  });
}

// The shell's setup is done in a folder of its own; $F is the list's file and variable. A file of
// 4094 bytes is the longest that is surely whole.
TEST(VorndiagHosts, TroubleInTheListOrARefusalEndsWithOne) {
  // clang-format off
  const struct { const char *setup, *address; int code; const char* says; } rows[] = {
      {":", "10.1.2.3", 3, "no list"},
      {"echo '10.7.0.0/ffff0000 10.1.0.0/ffff0000 # lab' >$F", "10.1.2.3", 0, "10.1.2.3: admitted"},
      {"echo 10.1.0.0/ffff0000 >$F", "10.2.2.3", 1, "10.2.2.3: REFUSED"},
      {"echo 10.1.0.0/16 >$F", "", 1, "WRONG: a mask is 8 hexadecimal digits: 16 bits are /ffff0000"},
      {"echo 10.1.300.1 >$F", "", 1, "a number is above 255"},
      {"echo fe80::1 >$F", "", 1, "WRONG: looks like a part of an IPv6 address"},
      {"echo 10.1.2.3/fffffff+ >$F", "", 1, "mask 0fffffff  WRONG: a mask is 8 hexadecimal digits  note"},
      {"echo '10.0.0.1;x' >$F", "", 1, "host   10.0.0.1 mask ffffffff  WRONG: holds a byte that is in no host's name"},
      {"echo 0.0.0.0 /ffffff00 >$F", "", 1, "WRONG: no such host\nno usable entry"},
      {"echo 0.0.0.0/00000000 >$F", "10.2.2.3", 0, "subnet 0.0.0.0 mask 00000000\n"},
      {"echo 10.1.2.3/ffff0000 10.1.9.9/FFFF0000 >$F", "", 0, "subnet 10.1.0.0 mask ffff0000  note: means the same as 10.1.2.3/ffff0000"},
      {"echo 10.1.2.3/00ff00ff 10.0.3.4 >$F", "", 1, "note: the mask has zeros between its ones"},
      {"echo 10.1.2.3 10.2.0.0/ffff0000 >$F", "", 1, "the host is in no subnet"},
      {"echo 10.1.2.3 10.2.0.0/ffff0000 >$F", "", 1, "no host of the list is in it"},
      {"echo 10.1.2.3 127.0.0.1 10.1.0.0/ffff0000 >$F", "10.1.2.3", 0, "hosts and subnets"},
      {"echo 239.1.2.3 >$F", "", 1, "the address of a group"},
      {"echo no.such.host.invalid >$F", "", 1, "WRONG: no such host"},
      {"printf '10.1.2.3\\r\\n' >$F", "10.1.2.3", 1, "10.1.2.3\\x0d                 host   10.1.2.3 mask ffffffff  WRONG: holds a carriage return"},
      {"(printf '10.1.2.3 %.0s' $(seq 454); echo 10.1.2.3) >$F", "10.1.2.3", 0, "10.1.2.3: admitted"},
      {"(printf '10.1.2.3 %.0s' $(seq 454); echo 10.1.2.30 10.1.2.4) >$F", "10.1.2.3", 1, "its end may be missing"},
      {"export $F=10.1.2.3::10.1.2.4", "10.1.2.4", 0, "from environment variable"},
      {"export $F=10.1.2.3; echo '#' >$F", "10.2.2.3", 0, "an empty list admits everybody"},
      {"export $F=10.1.2.3; ln -s $F $F", "10.1.2.3", 1, "HOSTS cannot be opened: Too many levels"},
      {"export $F=10.1.2.3; mkdir $F", "10.1.2.3", 1, "HOSTS cannot be read"},
  };
  // clang-format on
  const std::string folder = "D=$(mktemp -d); cd $D; F=VORN_PEER_HOSTS; ";
  NamespaceRun([&] {  // so that no name is asked for elsewhere
    ::Run("ip link set lo up");
    for (const auto& row : rows)
      DiagExpect(std::string("hosts peer ") + row.address + "; C=$?; rm -r $D; exit $C", row.code,
                 row.says, folder + row.setup + "; ");
  });
}
