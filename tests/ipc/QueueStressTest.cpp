#include "ipc/IpcHost.h"
#include "ipc/internal/QueueLayout.h"
#include "support/Emulator.h"
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
    _receiver = std::thread([this] { Receive(); });
    // The object keeps messages of a removed queue for a thread that has received before.
    EXPECT_TRUE(Await([this] { return _queue->Send("", 0) == 1 && _hasReceived; }));
    for (int i = 0; i < SENDERS; ++i)
      _senders[i].thread = std::thread([this, i] { Send(i); });
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
  /// The first message that was told to be sent and has not arrived; empty: all have.
  std::string MissingText() {
    const std::lock_guard lock(_lock);
    for (int i = 0; i < SENDERS; ++i) {
      const std::vector<bool>& arrived = _senders[i].arrived;
      for (std::size_t number = 0; number < static_cast<std::size_t>(_senders[i].sent); ++number)
        if (number >= arrived.size() || !arrived[number])
          return "sender " + std::to_string(i) + ": " + std::to_string(number) + " of " +
                 std::to_string(_senders[i].sent);
    }
    return "";
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
      _hasReceived = _hasReceived || length == 0;
      if (length < 0)
        sched_yield();
      else if (length != 0 && (length != sizeof message || message[2] != ~message[1]))
        ++garbled;
      else if (length != 0)
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
  std::atomic<bool> _hasReceived{false};
  std::mutex _lock;
};

/// Removes the queue and makes it again, in a thread. As a queue object does it, a message that is
/// sent while the queue is made or removed may be lost. By the layout and in another order, none
/// is: nothing empties a ring that has been opened, no sender opens what is being removed, and none
/// that made new sets writes beside one that has the old mutex.
class Owner {
public:
  explicit Owner(bool isObject) : _isObject(isObject) {
    Make();
    _thread = std::thread([this] {
      std::mt19937 random(5);
      while (!_isEnding) {
        Pause(20000, &random);
        Remove();
        Pause(1000, &random);
        Make();
      }
    });
  }
  ~Owner() { End(); }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;

  /// Leaves the queue on the host.
  void End() {
    _isEnding = true;
    if (_thread.joinable())
      _thread.join();
  }
  void Remove() {
    if (_isObject)
      return _queue->Destroy();
    NamedMutexTake(_sets[1]);  // nobody is in the middle of a message
    ShMDelete(_segment, 1);
    for (const int set : _sets)
      SemaphoreMutexDelete(set);
  }

private:
  void Make() {
    if (_isObject) {
      _queue = std::make_unique<Queue>(1, ID, SIZE);
      return;
    }
    _sets[0] = NamedSemaphoreNew(static_cast<int>(QueueKeyGet(ID)), 0);
    _sets[1] = NamedMutexNew(static_cast<int>(QueueMutexKeyGet(ID)));
    _segment = ShMNew(static_cast<int>(QueueKeyGet(ID)), QueueSegmentLength(SIZE));
  }

  const bool _isObject;
  std::unique_ptr<Queue> _queue;
  ShMHandle* _segment = nullptr;
  int _sets[2] = {};
  std::atomic<bool> _isEnding{false};
  std::thread _thread;
};

/// Seconds are few in the suite; for minutes: VORN_SOAK_SECONDS=600.
class QueueStress : public IpcHost {
protected:
  void SetUp() override {
    SKIP_UNDER_EMULATOR(THREAD_SIGNALS);
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
  /// Whether a phase goes on, after which others need as much time as it, `share` in all.
  bool TimeIsLeft(int share = 1) const {
    const auto now = std::chrono::steady_clock::now();
    return now < _begin + (_end - _begin) / share && !HasFailure();
  }

private:
  std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point _end;
};

}  // namespace

// The owner removes the queue and makes it again, while the threads of one object send and receive.
TEST_F(QueueStress, EverySenderGoesOnAndWhatWasToldSentArrivesThroughRemovalsAndSignals) {
  for (const bool isObject : {false, true}) {
    SCOPED_TRACE(isObject ? "owner is a queue object" : "owner works by the layout");
    ASSERT_TRUE(HostFresh());
    Owner owner(isObject);
    Queue queue(1, ID);
    Crowd crowd(&queue);
    int before[SENDERS] = {};
    do {
      for (int i = 0; i < SENDERS; ++i) {
        EXPECT_TRUE(Await([&] { return crowd.SentBy(i) >= before[i] + 20; })) << "sender " << i;
        before[i] = crowd.SentBy(i);
      }
    } while (TimeIsLeft(isObject ? 1 : 2));
    if (isObject)
      queue.Destroy();  // while all others go on
    crowd.SendersEnd();
    owner.End();
    if (!isObject) {
      EXPECT_TRUE(Await([&] { return crowd.MissingText().empty(); })) << crowd.MissingText();
    }
    queue.Destroy();
    crowd.ReceiverEnd();
    EXPECT_EQ(crowd.garbled, 0);
    EXPECT_EQ(queue.IsValid(), 0);
    owner.Remove();
    EXPECT_EQ(HostText(), "0/0");
  }
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
