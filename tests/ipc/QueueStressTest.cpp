#include "ipc/IpcHost.h"
#include "ipc/internal/QueueLayout.h"
#include "utils/VORNUtilsDiag.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int ID = 3;
constexpr int SENDERS = 6;
constexpr unsigned int SIZE = 400;

void Pause(unsigned int mostMicroseconds, std::mt19937* random) {
  usleep(static_cast<useconds_t>((*random)() % mostMicroseconds));
}

struct Sender {
  std::thread thread;
  std::atomic<int> sent{0};   ///< messages 0 to this one were told to be sent
  std::vector<bool> arrived;  ///< by number; guarded by the crowd's lock
};

/// Threads that use one queue object, and another thread that signals them.
class Crowd {
public:
  explicit Crowd(Queue* queue) : _queue(queue) {
    for (int i = 0; i < SENDERS; ++i)
      _senders[i].thread = std::thread([this, i] { Send(i); });
    _receiver = std::thread([this] { Receive(); });
    _signaller = std::thread([this] { Signal(); });
  }
  ~Crowd() {
    SendersEnd();
    ReceiverEnd();
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  void SendersEnd() {
    _sendersEnd = true;
    if (_signaller.joinable())
      _signaller.join();
    for (Sender& sender : _senders)
      if (sender.thread.joinable())
        sender.thread.join();
  }
  /// The queue must be gone, or messages on their way.
  void ReceiverEnd() {
    _receiverEnd = true;
    if (_receiver.joinable())
      _receiver.join();
  }
  int SentBy(int sender) const { return _senders[sender].sent; }
  bool HasReceivedAll() {
    const std::lock_guard lock(_lock);
    return std::all_of(_senders, _senders + SENDERS, [](const Sender& sender) {
      const auto count = static_cast<std::size_t>(sender.sent);
      return sender.arrived.size() >= count &&
             std::find(sender.arrived.begin(), sender.arrived.begin() + sender.sent, false) ==
                 sender.arrived.begin() + sender.sent;
    });
  }
  std::string Missing() {
    const std::lock_guard lock(_lock);
    std::string text;
    for (int i = 0; i < SENDERS; ++i)
      for (std::size_t n = 0; n < static_cast<std::size_t>(_senders[i].sent); ++n)
        if (n >= _senders[i].arrived.size() || !_senders[i].arrived[n])
          text += " " + std::to_string(i) + ":" + std::to_string(n) + "/" +
                  std::to_string(_senders[i].sent);
    return text;
  }
  int garbled = 0;  ///< to read after the receiver's end

private:
  // A message is sent until the queue takes it, so each is told to be sent once.
  void Send(int sender) {
    for (int number = 0; !_sendersEnd; ++number) {
      const int message[] = {sender, number, ~number};
      while (_queue->Send(reinterpret_cast<const char*>(message), sizeof message) == 0) {
        if (_sendersEnd)
          return;
        sched_yield();
      }
      _senders[sender].sent = number + 1;
    }
  }
  // A send that was interrupted after it had written is repeated, so a message may come twice.
  void Receive() {
    while (!_receiverEnd) {
      int message[3];
      const int length = _queue->Recv(reinterpret_cast<char*>(message), sizeof message);
      if (length < 0)
        sched_yield();
      else if (length != sizeof message || message[2] != ~message[1])
        ++garbled;
      else
        MessageNote(message[0], static_cast<std::size_t>(message[1]));
    }
  }
  void MessageNote(int sender, std::size_t number) {
    const std::lock_guard lock(_lock);
    std::vector<bool>& arrived = _senders[sender].arrived;
    arrived.resize(std::max(arrived.size(), number + 1));
    arrived[number] = true;
  }
  void Signal() {
    std::mt19937 random(7);
    while (!_sendersEnd) {
      const auto victim = random() % (SENDERS + 1);
      pthread_kill(victim < SENDERS ? _senders[victim].thread.native_handle()
                                    : _receiver.native_handle(),
                   SIGUSR1);
      Pause(500, &random);
    }
  }

  Queue* _queue;
  Sender _senders[SENDERS];
  std::thread _receiver;
  std::thread _signaller;
  std::atomic<bool> _sendersEnd{false};
  std::atomic<bool> _receiverEnd{false};
  std::mutex _lock;
};

/// Makes and removes the queue by its layout, in an order that loses nothing: a queue object would
/// empty the ring that it has just made, and would remove the segment last, when a sender may have
/// opened it again.
class Owner {
public:
  ~Owner() { Remove(); }
  void Make() {
    _sets[0] = NamedSemaphoreNew(static_cast<int>(QueueKeyGet(ID)), 0);
    _sets[1] = NamedMutexNew(static_cast<int>(QueueMutexKeyGet(ID)));
    _segment = ShMNew(static_cast<int>(QueueKeyGet(ID)), QueueSegmentLength(SIZE));
  }
  void Remove() {
    ShMDelete(_segment, 1);
    _segment = nullptr;
    for (const int set : _sets)
      SemaphoreMutexDelete(set);
  }

private:
  ShMHandle* _segment = nullptr;
  int _sets[2] = {};
};

/// Seconds are few in the suite; for minutes: VORN_SOAK_SECONDS=600.
class QueueStress : public IpcHost {
protected:
  void SetUp() override {
    IpcHost::SetUp();
    const char* wanted = std::getenv("VORN_SOAK_SECONDS");
    const int seconds = wanted != nullptr ? std::atoi(wanted) : 2;
    alarm(static_cast<unsigned int>(seconds) + 100);
    _end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    VornUtilsVerbositySet(-1);
  }
  void TearDown() override { VornUtilsVerbositySet(0); }
  bool TimeIsLeft() const { return std::chrono::steady_clock::now() < _end && !HasFailure(); }

private:
  std::chrono::steady_clock::time_point _end;
};

}  // namespace

// The owner removes the queue and makes it again, while the threads of one object send and receive.
TEST_F(QueueStress, EverySenderGoesOnAndWhatWasToldSentArrivesThroughRemovalsAndSignals) {
  std::atomic<bool> ownerEnd{false};
  Owner owner;
  owner.Make();
  Queue queue(1, ID);
  std::thread ownerThread([&] {
    std::mt19937 random(5);
    while (!ownerEnd) {
      Pause(20000, &random);
      owner.Remove();
      Pause(1000, &random);
      owner.Make();
    }
  });
  Crowd crowd(&queue);
  int before[SENDERS] = {};
  do {
    for (int i = 0; i < SENDERS; ++i) {
      EXPECT_TRUE(Await([&] { return crowd.SentBy(i) >= before[i] + 20; })) << "sender " << i;
      before[i] = crowd.SentBy(i);
    }
  } while (TimeIsLeft());
  crowd.SendersEnd();
  ownerEnd = true;
  ownerThread.join();
  EXPECT_TRUE(Await([&] { return crowd.HasReceivedAll(); }))
      << crowd.Missing() << " " << queue.SpaceGet() << " " << crowd.garbled << " kept ";
  queue.Destroy();
  crowd.ReceiverEnd();
  EXPECT_EQ(crowd.garbled, 0);
  EXPECT_EQ(queue.IsValid(), 0);
  owner.Remove();
  EXPECT_EQ(HostText(), "0/0");
}

// Destroyed by another thread at any moment: nobody hangs, and nothing comes back.
TEST_F(QueueStress, DestroyAtAnyMomentEndsAllAndLeavesNothing) {
  std::mt19937 random(11);
  for (int round = 0; TimeIsLeft(); ++round) {
    SCOPED_TRACE(round);
    const bool isCreator = round % 3 == 0;
    const bool hasDeadHolder = round % 4 == 0;
    auto creator = std::make_unique<Queue>(1, ID, SIZE);
    auto queue = isCreator ? std::move(creator) : std::make_unique<Queue>(1, ID);
    creator.reset();
    const int mutex = queue->_mutexId;
    Crowd crowd(queue.get());
    Pause(3000, &random);
    if (hasDeadHolder)
      NamedMutexTake(mutex);
    Pause(1000, &random);
    queue->Destroy();
    EXPECT_EQ(HostText(), "0/0") << "when Destroy has returned";
    Pause(300, &random);
    crowd.SendersEnd();
    crowd.ReceiverEnd();
    EXPECT_EQ(HostText(), "0/0") << "when all threads have ended";
    EXPECT_EQ(queue->IsValid(), 0);
    EXPECT_EQ(queue->Send("", 0), 0);
  }
}
