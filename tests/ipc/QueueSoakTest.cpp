#include "ipc/IpcHost.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <random>

#include <sys/mman.h>

namespace {

using QueueSoak = IpcHost;

constexpr int SENDERS = 4;
constexpr int GENERATIONS = 100000;

struct Message {
  int sender;
  int number;
  unsigned int length;  // bytes that follow, each of them `Filler`
};

unsigned int Filler(const Message& message) {
  return static_cast<unsigned int>(message.sender * 31 + message.number * 7) % 251U;
}

// Sends one message after the other and counts, in memory shared with the test, those that went.
int Stream(int sender, int* sent) {
  Queue queue(1, 1);
  std::mt19937 random(static_cast<unsigned int>(sender));
  for (int number = 0;; ++number) {
    const Message message{sender, number, static_cast<unsigned int>(random() % 300)};
    std::string text(reinterpret_cast<const char*>(&message), sizeof message);
    text.append(message.length, static_cast<char>(Filler(message)));
    while (queue.Send(text.data(), static_cast<int>(text.size())) == 0)
      if (queue.IsValid() == 0)
        return 1;
    sent[sender] = number + 1;
  }
}

}  // namespace

// For minutes: VORN_SOAK_SECONDS=180. A sender that dies with the mutex is told from one that only
// came last by the kernel, which knows who changed the value last.
TEST_F(QueueSoak, WhatKilledAndReplacedSendersSentArrivesExactly) {
  const char* wanted = std::getenv("VORN_SOAK_SECONDS");
  const int seconds = wanted != nullptr ? std::atoi(wanted) : 2;
  alarm(static_cast<unsigned int>(seconds) + 60);
  auto* const sent =
      static_cast<int*>(mmap(nullptr, GENERATIONS * sizeof(int), PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  Queue queue(1, 1, 5000);
  std::unique_ptr<Child> senders[SENDERS];
  int ids[SENDERS] = {};
  std::map<int, int> delivered;
  int started = 0;
  int mutexesGiven = 0;
  long total = 0;
  std::mt19937 random(3);
  const auto take = [&] {
    const std::string text = queue.Receive(1000);
    Message message{};
    ASSERT_GE(text.size(), sizeof message);
    std::memcpy(&message, text.data(), sizeof message);
    ASSERT_EQ(message.number, delivered[message.sender]++) << "of sender " << message.sender;
    ASSERT_EQ(text.substr(sizeof message),
              std::string(message.length, static_cast<char>(Filler(message))));
    ++total;
  };
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (std::chrono::steady_clock::now() < end && started < GENERATIONS && !HasFailure()) {
    const int victim = static_cast<int>(random() % SENDERS);
    if (senders[victim] != nullptr) {
      kill(senders[victim]->pid, SIGKILL);
      ASSERT_EQ(senders[victim]->Wait(), -SIGKILL);
      if (ValueGet(queue._mutexId) == 0 &&
          semctl(queue._mutexId, 0, GETPID, nullptr) == senders[victim]->pid)
        mutexesGiven += NamedMutexGive(queue._mutexId);
    }
    ids[victim] = started++;
    senders[victim] = std::make_unique<Child>([&] { return Stream(ids[victim], sent); });
    for (auto count = random() % 400; count > 0 && !HasFailure(); --count)
      take();
  }
  for (auto& sender : senders)
    sender.reset();
  while (queue.SpaceGet() < 5000 && !HasFailure())
    take();
  for (int id = 0; id < started; ++id)
    ASSERT_TRUE(delivered[id] == sent[id] || delivered[id] == sent[id] + 1) << "of sender " << id;
  std::printf("%ld messages of %d senders, %d died with the mutex\n", total, started, mutexesGiven);
  munmap(sent, GENERATIONS * sizeof(int));
}
