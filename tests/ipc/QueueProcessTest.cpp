#include "ipc/IpcHost.h"
#include "support/Emulator.h"
#include "utils/VORNUtilsDiag.h"

#include <algorithm>
#include <fstream>
#include <list>
#include <optional>
#include <random>
#include <thread>

#include <sys/mman.h>
#include <sys/resource.h>

namespace {

using QueueProcess = IpcHost;

// Message `number` of a sender: both, then bytes that follow from them; 3 to `most` in all.
std::string MessageOf(int sender, int number, int most) {
  std::mt19937 random(static_cast<unsigned int>(sender * 100003 + number));
  std::string text(3 + random() % static_cast<unsigned int>(most - 2), ' ');
  std::generate(text.begin() + 3, text.end(), [&] { return static_cast<char>(random()); });
  text[0] = static_cast<char>(sender);
  text[1] = static_cast<char>(number & 127);
  text[2] = static_cast<char>(number >> 7);
  return text;
}

unsigned char SenderOf(const std::string& text) { return static_cast<unsigned char>(text[0]); }

int NumberOf(const std::string& text) { return text[1] + (text[2] << 7); }

// Sends until it is done or the other side is away.
bool SendAwait(ShmMsgQ& queue, const std::string& text) {
  return Await([&] { return queue.Send(text.data(), static_cast<int>(text.size())) == 1; });
}

// Counts the signals of this process and its children.
volatile int* signals;

void SignalsInstall() {
  signals = static_cast<volatile int*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  struct sigaction action {};
  action.sa_handler = [](int) { *signals = *signals + 1; };
  sigaction(SIGUSR1, &action, nullptr);
}

}  // namespace

TEST_F(QueueProcess, ManySendersOneReceiverNothingLostOrOutOfOrder) {
  constexpr int SENDERS = 4;
  constexpr int MESSAGES = 300;
  for (int size : {7, 8, 16, 61, 4096, 1 << 20, 8 << 20}) {
    const int most = std::min(size - 4, 3000);
    Queue queue(1, 1, static_cast<unsigned int>(size));
    std::list<Child> senders;
    for (int sender = 0; sender < SENDERS; ++sender)
      senders.emplace_back([=] {
        Queue own(1, 1);
        for (int number = 0; number < MESSAGES; ++number)
          if (!SendAwait(own, MessageOf(sender, number, most)))
            return 1;
        return 0;
      });
    int next[SENDERS] = {};
    for (int i = 0; i < SENDERS * MESSAGES; ++i) {
      const std::string text = queue.Receive(3000);
      ASSERT_LT(SenderOf(text), SENDERS);
      ASSERT_EQ(text, MessageOf(text[0], next[SenderOf(text)]++, most)) << size;
    }
    for (Child& sender : senders)
      EXPECT_EQ(sender.Wait(), 0);
    EXPECT_EQ(queue.SpaceGet(), size);
    queue.Destroy();
  }
}

// Senders whose queue goes away and comes back, of another size, go on; what arrives is whole and
// in order. A sender whose own queue object gave up, or fills a ring that nobody reads, opens anew.
TEST_F(QueueProcess, SendersFollowAQueueThatIsDestroyedAndMadeAgain) {
  std::list<Child> senders;
  for (int sender = 0; sender < 2; ++sender)
    senders.emplace_back([=] {
      std::optional<Queue> own;
      for (int number = 0;; number = (number + 1) % 16000) {
        const std::string text = MessageOf(sender, number, 20);
        while (!own || own->Send(text.data(), static_cast<int>(text.size())) == 0)
          own.emplace(1, 1);
      }
      return 0;
    });
  VornUtilsVerbositySet(-1);
  for (int round = 0; round < 40; ++round) {
    std::optional<Queue> queue;
    ASSERT_TRUE(Await([&] {
      queue.emplace(1, 1, static_cast<unsigned int>(100 + 50 * (round % 7)));
      return queue->IsValid() == 1;
    }));
    int last[2] = {-1, -1};
    for (int i = 0; i < 50 || last[0] < 0 || last[1] < 0; ++i) {
      const std::string text = queue->Receive(100);
      const int number = NumberOf(text);
      ASSERT_LT(SenderOf(text), 2);
      ASSERT_EQ(text, MessageOf(text[0], number, 20));
      ASSERT_TRUE(number > last[SenderOf(text)] || number < 2000);
      last[SenderOf(text)] = number;
    }
    queue->Destroy();
  }
  VornUtilsVerbositySet(0);
}

TEST_F(QueueProcess, BlockedReceiverFailsWhenTheQueueGoesOrASignalComes) {
  SignalsInstall();
  for (const bool isSignal : {false, true}) {
    Queue queue(1, 1, 16);
    Child receiver([] {
      char byte;
      return Queue(1, 1).Recv(&byte, 1) == -1 ? 7 : 0;
    });
    ASSERT_TRUE(WaiterAwait(queue._semaphoreId));
    if (isSignal)
      kill(receiver.pid, SIGUSR1);
    queue.Destroy();
    EXPECT_EQ(receiver.Wait(), 7);
    EXPECT_EQ(*signals, isSignal ? 1 : 0);
    EXPECT_EQ(HostText(), "0/0");
  }
}

TEST_F(QueueProcess, SignalWhileSendingCostsTheCreatorItsQueueAndAnOpenerNothing) {
  SignalsInstall();
  Queue queue(1, 1, 16);
  ASSERT_EQ(NamedMutexTake(queue._mutexId), 1);
  Child creator([&] { return queue.Send("no", 2) + 2 * queue.IsValid() + 4 * queue.SpaceGet(); });
  ASSERT_TRUE(WaiterAwait(queue._mutexId));
  kill(creator.pid, SIGUSR1);
  EXPECT_EQ(creator.Wait(), 0);
  Child opener([] { return Queue(1, 1).Send("yes", 3); });
  ASSERT_TRUE(WaiterAwait(queue._mutexId));
  kill(opener.pid, SIGUSR1);
  ASSERT_TRUE(Await([] { return *signals == 2; }));
  ASSERT_TRUE(WaiterAwait(queue._mutexId)) << "found again by key, and waiting as before";
  EXPECT_EQ(NamedMutexGive(queue._mutexId), 1);
  EXPECT_EQ(opener.Wait(), 1);
  EXPECT_EQ(queue.Receive(9), "yes");
  EXPECT_EQ(queue.SpaceGet(), 16);
}

// The queue is still there, and another object receives from it.
TEST_F(QueueProcess, CreatorsInterruptedSendEndsItsReceiverThatWaits) {
  SKIP_UNDER_EMULATOR(THREAD_SIGNALS);
  SignalsInstall();
  Queue queue(1, 1, 16);
  const int semaphore = queue._semaphoreId;
  const int mutex = queue._mutexId;
  int received = 0;
  int sent = 1;
  std::thread receiver([&] {
    char byte;
    received = queue.Recv(&byte, 1);
  });
  ASSERT_TRUE(WaiterAwait(semaphore));
  ASSERT_EQ(NamedMutexTake(mutex), 1);
  std::thread sender([&] { sent = queue.Send("no", 2); });
  ASSERT_TRUE(WaiterAwait(mutex));
  pthread_kill(sender.native_handle(), SIGUSR1);
  sender.join();
  receiver.join();
  EXPECT_EQ(sent, 0);
  EXPECT_EQ(received, -1);
  EXPECT_EQ(queue.IsValid(), 0);
  EXPECT_EQ(NamedMutexGive(mutex), 1);
  Queue other(1, 1);
  EXPECT_EQ(other.Send("yes", 3), 1);
  EXPECT_EQ(other.Receive(9), "yes");
}

TEST_F(QueueProcess, DestroyEndsASendThatWaitsForADeadHolderAndLeavesNothing) {
  Queue queue(1, 1, 16);
  Queue opener(1, 1);
  ASSERT_EQ(NamedMutexTake(queue._mutexId), 1);  // and never given back
  int sent = 1;
  std::thread sender([&] { sent = opener.Send("no", 2); });
  ASSERT_TRUE(WaiterAwait(queue._mutexId));
  opener.Destroy();
  sender.join();
  EXPECT_EQ(sent, 0);
  EXPECT_EQ(HostText(), "0/1") << "the segment goes with the last who is attached";
}

TEST_F(QueueProcess, SemaphoreHasTwoValuesAndKeepsThemWhenOpened) {
  const int handle = NamedMutexNew(9);
  EXPECT_EQ(NamedMutexGive(handle), 1);
  EXPECT_EQ(NamedMutexGive(handle), 1) << "given already";
  EXPECT_EQ(NamedMutexTake(handle), 1);
  EXPECT_EQ(NamedSemaphoreNew(9, 5), handle);
  EXPECT_EQ(ValueGet(handle), 0);
  Child taker([=] { return NamedMutexTake(handle); });
  ASSERT_TRUE(WaiterAwait(handle));
  EXPECT_EQ(NamedSemaphoreGive(handle), 1);
  EXPECT_EQ(taker.Wait(), 1);
  Child loser([=] { return NamedMutexTake(handle); });
  ASSERT_TRUE(WaiterAwait(handle));
  EXPECT_EQ(NamedMutexDelete(handle), 1);
  EXPECT_EQ(loser.Wait(), 0);
}

TEST_F(QueueProcess, KernelLimitsRefuseAndLeaveWhatIsPromised) {
  const struct {
    const char* file;
    const char* limit;
    int valid;
    const char* left;
  } cases[] = {{"sem", "250 32000 32 0", 0, "0/0"}, {"sem", "250 32000 32 1", 0, "1/0"},
               {"sem", "250 32000 32 2", 1, "2/1"}, {"shmmni", "0", 0, "0/0"},
               {"shmmni", "1", 1, "2/1"},           {"shmmax", "28", 0, "0/0"},
               {"shmmax", "29", 1, "2/1"}};
  for (const auto& row : cases) {
    ASSERT_TRUE(HostFresh());
    std::ofstream file(std::string("/proc/sys/kernel/") + row.file);
    if (!(file << row.limit << std::flush))
      GTEST_SKIP() << "may not write the namespace's kernel." << row.file;
    Queue queue(1, 1, 16);
    EXPECT_EQ(queue.IsValid(), row.valid) << row.file << " " << row.limit;
    EXPECT_EQ(HostText(), row.left);
    queue.Destroy();
    EXPECT_EQ(HostText(), "0/0");
  }
  Child child([] {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * 4096 + (16 << 20);
    const rlimit space{limit, limit};
    return setrlimit(RLIMIT_AS, &space) != 0 || Queue(1, 1, 64U << 20).IsValid() != 0 ? 1 : 0;
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(HostText(), "0/0");
}

// A program that knows nothing but the layout receives from one queue and sends to another.
TEST_F(QueueProcess, ProgramInAnotherLanguageReceivesAndSends) {
  Queue there(1, 1, 61);
  Queue back(1, 2, 61);
  Child peer([] {
    execlp("python3", "python3", QUEUE_PEER, "1", "2", "200", nullptr);
    return 77;
  });
  Child sender([&] {
    for (int i = 0; i < 200; ++i)
      if (!SendAwait(there, MessageOf(1, i, 57)))
        return 1;
    return 0;
  });
  for (int i = 0; i < 200; ++i) {
    if (i == 0 && !Await([&] { return back.SpaceGet() < 61; }) && peer.Wait() == 77)
      GTEST_SKIP() << "no python3";
    std::string text = back.Receive(64);
    std::reverse(text.begin(), text.end());
    ASSERT_EQ(text, MessageOf(1, i, 57));
  }
  EXPECT_EQ(sender.Wait(), 0);
  EXPECT_EQ(peer.Wait(), 0);
}
