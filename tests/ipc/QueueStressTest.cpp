// Many senders at once: processes that are killed, and threads of one object whose queue is removed
// and made again. Seconds are few in the suite. For minutes:
//   VORN_SOAK_SECONDS=600 build/dev/tests/ipc/ipc_tests --gtest_filter='QueueStress.*'

#include "ipc/IpcHost.h"
#include "ipc/internal/QueueLayout.h"
#include "support/Emulator.h"
#include "utils/VORNUtilsDiag.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <thread>

namespace {

constexpr int ID = 3;
constexpr unsigned int SENDERS = 6;
constexpr unsigned int SIZE = 400;

struct Tag {
  unsigned int sender;
  unsigned int number;
};

// The message with this tag: itself, and up to 89 bytes that follow from it.
std::string MessageOf(const Tag& tag) {
  const std::string text(reinterpret_cast<const char*>(&tag), sizeof tag);
  return text + std::string(tag.number * 7 % 90, static_cast<char>(tag.sender + tag.number));
}

// The tag of a whole message; none for anything else.
std::optional<Tag> TagOf(const std::string& text) {
  Tag tag{};
  if (text.size() < sizeof tag)
    return std::nullopt;
  std::memcpy(&tag, text.data(), sizeof tag);
  return text == MessageOf(tag) ? std::optional(tag) : std::nullopt;
}

bool TagSend(Queue& queue, const Tag& tag) {
  const std::string text = MessageOf(tag);
  return queue.Send(text.data(), static_cast<int>(text.size())) == 1;
}

void Pause(unsigned int mostMicroseconds, std::mt19937& random) {
  usleep(static_cast<useconds_t>(random() % mostMicroseconds));
}

/// Threads that use one queue object: many send, one receives, one signals all of them.
class Crowd {
public:
  explicit Crowd(Queue& queue) : _queue(queue) {
    _receiver = std::jthread([this](const std::stop_token& end) { Receive(end); });
    // The object keeps messages of a removed queue for a thread that has received before.
    EXPECT_TRUE(Await([&] { return queue.Send("", 0) == 1 && _hasReceived; }));
    for (unsigned int i = 0; i < SENDERS; ++i)
      _senders[i] = std::jthread([this, i](const std::stop_token& end) { Send(end, i); });
    _signaller = std::jthread([this](const std::stop_token& end) { Signal(end); });
  }

  void SendersEnd() {
    _signaller = {};
    for (std::jthread& sender : _senders)
      sender = {};
  }
  /// The queue must be gone, or messages on their way.
  void ReceiverEnd() { _receiver = {}; }

  std::atomic<unsigned int> sent[SENDERS]{};     ///< messages that were told to be sent
  std::atomic<unsigned int> arrived[SENDERS]{};  ///< the number that is to come next
  std::atomic<int> lost{0};                      ///< times that a later one came
  std::atomic<int> garbled{0};

private:
  // A message is sent until the queue takes it, so each is told to be sent once.
  void Send(const std::stop_token& end, unsigned int sender) {
    while (!end.stop_requested())
      if (TagSend(_queue, {sender, sent[sender]}))
        ++sent[sender];
      else
        sched_yield();
  }
  // A send that was interrupted after it had written is repeated, so a message may come twice.
  void Receive(const std::stop_token& end) {
    while (!end.stop_requested()) {
      const std::string text = _queue.Receive(100);
      _hasReceived = _hasReceived || text.empty();
      if (const std::optional<Tag> tag = TagOf(text); tag && tag->sender < SENDERS) {
        lost += tag->number > arrived[tag->sender] ? 1 : 0;
        arrived[tag->sender] = std::max<unsigned int>(arrived[tag->sender], tag->number + 1);
      } else if (text == "failed") {
        sched_yield();
      } else if (!text.empty()) {
        ++garbled;
      }
    }
  }
  void Signal(const std::stop_token& end) {
    std::mt19937 random(7);
    while (!end.stop_requested()) {
      const auto victim = random() % (SENDERS + 1);
      std::jthread& thread = victim < SENDERS ? _senders[victim] : _receiver;
      pthread_kill(thread.native_handle(), SIGUSR1);
      Pause(500, random);
    }
  }

  Queue& _queue;
  std::atomic<bool> _hasReceived{false};
  // They end from the last to the first: the signaller uses the handles of the others.
  std::jthread _receiver;
  std::jthread _senders[SENDERS];
  std::jthread _signaller;
};

class QueueStress : public EmptiedHost {
protected:
  void SetUp() override {
    EmptiedHost::SetUp();
    alarm(static_cast<unsigned int>(_seconds.count()) + 100);
    VornUtilsVerbositySet(-1);
  }
  /// Whether a phase goes on that begins when `share` parts of the time have gone.
  bool TimeIsLeft(double share = 1) const {
    return std::chrono::steady_clock::now() < _begin + _seconds * share && !HasFailure();
  }

private:
  const char* const _wanted = std::getenv("VORN_SOAK_SECONDS");
  const std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
  const std::chrono::duration<double> _seconds{_wanted != nullptr ? std::atoi(_wanted) : 2};
};

}  // namespace

// A sender that dies with the mutex is told from one that only came last by the kernel, which knows
// who changed the value last.
TEST_F(QueueStress, WhatKilledAndReplacedProcessesSentArrivesExactly) {
  constexpr std::size_t GENERATIONS = 100000;
  constexpr std::size_t BYTES = GENERATIONS * sizeof(unsigned int);
  auto* const sent = static_cast<unsigned int*>(  // by sender, shared with the processes
      mmap(nullptr, BYTES, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::map<unsigned int, unsigned int> arrived;
  unsigned int started = 0;
  const unsigned int sizes[] = {101, 5000, 1 << 20};
  for (const unsigned int& size : sizes) {
    OwnQueue queue(1, ID, size);
    std::unique_ptr<Child> senders[SENDERS];
    const auto take = [&] {
      const std::string text = queue.Receive(100);
      const std::optional<Tag> tag = TagOf(text);
      ASSERT_TRUE(tag) << "not a whole message: " << testing::PrintToString(text);
      ASSERT_EQ(tag->number, arrived[tag->sender]++) << "of sender " << tag->sender;
    };
    std::mt19937 random(3);
    const unsigned int least = started + 20;
    const double share = static_cast<double>(&size - sizes + 1) / 3;
    while (started < least || (TimeIsLeft(share) && started < GENERATIONS)) {
      std::unique_ptr<Child>& victim = senders[random() % SENDERS];
      if (victim != nullptr) {
        kill(victim->pid, SIGKILL);
        ASSERT_EQ(victim->Wait(), -SIGKILL);
        if (ValueGet(queue._mutexId) == 0 &&
            semctl(queue._mutexId, 0, GETPID, nullptr) == victim->pid)
          NamedMutexGive(queue._mutexId);
      }
      victim = std::make_unique<Child>([&] {
        for (Queue own(1, ID); own.IsValid() == 1;)
          sent[started] += TagSend(own, {started, sent[started]}) ? 1 : 0;
        return 1;
      });
      ++started;
      for (auto count = random() % 400; count > 0 && !HasFailure(); --count)
        take();
    }
    for (std::unique_ptr<Child>& sender : senders)
      sender.reset();
    while (queue.SpaceGet() < static_cast<int>(size) && !HasFailure())
      take();
  }
  for (unsigned int sender = 0; sender < started; ++sender) {
    EXPECT_GE(arrived[sender], sent[sender]) << "of sender " << sender;
    EXPECT_LE(arrived[sender], sent[sender] + 1) << "the last one may not have been counted";
  }
  munmap(sent, BYTES);
}

// The owner removes the queue and makes it again, while the threads of one object send and receive.
// As a queue object does it, a message that is sent meanwhile may be lost. By the layout and in
// this order, none is: nothing empties a ring that has been opened, no sender opens what is being
// removed, and none that made new sets writes beside one that has the old mutex.
TEST_F(QueueStress, EverySenderGoesOnAndWhatWasToldSentArrivesThroughRemovalsAndSignals) {
  SKIP_UNDER_EMULATOR(THREAD_SIGNALS);
  constexpr int KEY = static_cast<int>(QueueKeyGet(ID));
  ShMHandle* segment = nullptr;
  int semaphore = 0, mutex = 0;
  const auto make = [&] {
    semaphore = NamedSemaphoreNew(KEY, 0);
    mutex = NamedMutexNew(static_cast<int>(QueueMutexKeyGet(ID)));
    segment = ShMNew(KEY, QueueSegmentLength(SIZE));
  };
  const auto remove = [&] {
    NamedMutexTake(mutex);  // nobody is in the middle of a message
    ShMDelete(segment, 1);
    SemaphoreMutexDelete(semaphore);
    SemaphoreMutexDelete(mutex);
  };
  make();
  std::jthread changes([&](const std::stop_token& end) {
    for (std::mt19937 random(5); !end.stop_requested(); make()) {
      Pause(20000, random);
      remove();
      Pause(1000, random);
    }
  });
  Queue queue(1, ID);
  Crowd crowd(queue);
  do {
    for (std::atomic<unsigned int>& sent : crowd.sent) {
      const unsigned int before = sent;
      EXPECT_TRUE(Await([&] { return sent >= before + 20; })) << "sender " << &sent - crowd.sent;
    }
  } while (TimeIsLeft());
  crowd.SendersEnd();
  changes = {};
  for (unsigned int i = 0; i < SENDERS; ++i)
    EXPECT_TRUE(Await([&] { return crowd.arrived[i] >= crowd.sent[i]; }))
        << "sender " << i << ": " << crowd.arrived[i] << " of " << crowd.sent[i];
  queue.Destroy();
  crowd.ReceiverEnd();
  EXPECT_EQ(crowd.lost, 0);
  EXPECT_EQ(crowd.garbled, 0);
  EXPECT_EQ(queue.IsValid(), 0);
  remove();
}

// Destroyed by another thread at any moment: nobody hangs, and nothing comes back.
TEST_F(QueueStress, DestroyAtAnyMomentEndsAllAndLeavesNothing) {
  SKIP_UNDER_EMULATOR(THREAD_SIGNALS);
  std::mt19937 random(11);
  for (int round = 0; round < 12 || TimeIsLeft(); ++round) {  // 12: each kind once
    SCOPED_TRACE(round);
    const bool isCreator = round % 3 == 0;
    const bool hasDeadHolder = round % 4 == 0;
    auto creator = std::make_unique<Queue>(1, ID, SIZE);
    auto queue = isCreator ? std::move(creator) : std::make_unique<Queue>(1, ID);
    creator.reset();
    const int mutex = queue->_mutexId;
    std::optional<Crowd> crowd(*queue);
    Pause(3000, random);
    if (hasDeadHolder)
      NamedMutexTake(mutex);
    Pause(1000, random);
    queue->Destroy();
    EXPECT_EQ(HostText(), "0/0") << "when Destroy has returned";
    Pause(300, random);
    crowd.reset();
    EXPECT_EQ(HostText(), "0/0") << "when all threads have ended";
    EXPECT_EQ(queue->IsValid(), 0);
    EXPECT_EQ(queue->Send("", 0), 0);
  }
}
