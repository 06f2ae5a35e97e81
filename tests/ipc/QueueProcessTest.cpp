#include "ipc/IpcHost.h"
#include "support/Emulator.h"

#include <thread>

#include <sys/mman.h>

namespace {

// Counts the signals of this process and its children.
volatile int* signals;

class QueueProcess : public EmptiedHost {
protected:
  void SetUp() override {
    EmptiedHost::SetUp();
    signals = static_cast<volatile int*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    struct sigaction action {};
    action.sa_handler = [](int) { *signals = *signals + 1; };
    sigaction(SIGUSR1, &action, nullptr);
  }
};

int YesSend(Queue& queue) { return queue.Send("yes", 3); }

}  // namespace

TEST_F(QueueProcess, BlockedReceiverFailsWhenTheQueueGoesOrASignalComes) {
  for (const bool isSignal : {false, true}) {
    OwnQueue queue(1, 1, 16);
    Child receiver([] { return Queue(1, 1).Receive(1) == "failed" ? 7 : 0; });
    ASSERT_TRUE(WaiterAwait(queue._semaphoreId));
    if (isSignal)
      kill(receiver.pid, SIGUSR1);
    else
      queue.Destroy();
    EXPECT_EQ(receiver.Wait(), 7);
    EXPECT_EQ(*signals, isSignal ? 1 : 0);
  }
}

TEST_F(QueueProcess, SignalWhileSendingCostsAnOpenerNothing) {
  OwnQueue queue(1, 1, 16);
  ASSERT_EQ(NamedMutexTake(queue._mutexId), 1);
  Child opener([] {
    Queue own(1, 1);
    return YesSend(own);
  });
  ASSERT_TRUE(WaiterAwait(queue._mutexId));
  kill(opener.pid, SIGUSR1);
  ASSERT_TRUE(Await([] { return *signals == 1; }));
  ASSERT_TRUE(WaiterAwait(queue._mutexId)) << "found again by key, and waiting as before";
  EXPECT_EQ(NamedMutexGive(queue._mutexId), 1);
  EXPECT_EQ(opener.Wait(), 1);
  EXPECT_EQ(queue.Receive(9), "yes");
  EXPECT_EQ(queue.SpaceGet(), 16) << "it is there once";
}

// The queue is still there, and another object receives from it.
TEST_F(QueueProcess, CreatorsInterruptedSendCostsItTheQueueAndEndsItsReceiverThatWaits) {
  SKIP_UNDER_EMULATOR(THREAD_SIGNALS);
  OwnQueue queue(1, 1, 16);
  const int semaphore = queue._semaphoreId;
  const int mutex = queue._mutexId;
  std::string received;
  int sent = 1;
  std::thread receiver([&] { received = queue.Receive(1); });
  ASSERT_TRUE(WaiterAwait(semaphore));
  ASSERT_EQ(NamedMutexTake(mutex), 1);
  std::thread sender([&] { sent = YesSend(queue); });
  ASSERT_TRUE(WaiterAwait(mutex));
  pthread_kill(sender.native_handle(), SIGUSR1);
  sender.join();
  receiver.join();
  EXPECT_EQ(sent, 0);
  EXPECT_EQ(received, "failed");
  EXPECT_EQ(queue.IsValid(), 0);
  EXPECT_EQ(queue.SpaceGet(), 0);
  EXPECT_EQ(NamedMutexGive(mutex), 1);
  Queue other(1, 1);
  EXPECT_EQ(YesSend(other), 1);
  EXPECT_EQ(other.Receive(9), "yes");
}

TEST_F(QueueProcess, DestroyEndsASendThatWaitsForADeadHolder) {
  const OwnQueue queue(1, 1, 16);
  Queue opener(1, 1);
  ASSERT_EQ(NamedMutexTake(queue._mutexId), 1);  // and never given back
  int sent = 1;
  std::thread sender([&] { sent = YesSend(opener); });
  ASSERT_TRUE(WaiterAwait(queue._mutexId));
  opener.Destroy();
  EXPECT_EQ(HostText(), "0/1") << "the segment goes with the last who is attached";
  sender.join();
  EXPECT_EQ(sent, 0);
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
