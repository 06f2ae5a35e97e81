#include "ipc/IpcHost.h"
#include "support/Emulator.h"

#include <thread>

namespace {

using QueueProcess = EmptiedHost;

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
  }
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
  std::thread sender([&] { sent = queue.Send("no", 2); });
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
  EXPECT_EQ(other.Send("yes", 3), 1);
  EXPECT_EQ(other.Receive(9), "yes");
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
