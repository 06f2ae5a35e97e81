#include "ipc/ShmMsgQManager.h"

#include "ipc/IpcHost.h"
#include "platform/KelDebug.h"

#include <atomic>
#include <list>
#include <map>
#include <sstream>
#include <thread>

namespace {

class ManagerQueues : public IpcHost {
protected:
  void TearDown() override { ShmMsgQManager::Destroy(); }
};

// One step in this process, for example "New 5": its result (2: the object of the step before), the
// registry in its order as "5x1" for id and count, and what the host has.
std::string Do(const std::string& step) {
  static ShmMsgQ* queue = nullptr;  // the one that was returned last
  std::string operation;
  int id = 0;
  std::istringstream(step) >> operation >> id;
  int result = 1;
  const auto keep = [&](ShmMsgQ* got) {
    result = got == nullptr ? 0 : operation == "Acquire" && got == queue ? 2 : 1;
    queue = got != nullptr ? got : queue;
  };
  const std::map<std::string, std::function<void()>> operations = {
      {"New", [&] { keep(ShmMsgQManager::New(id, 16)); }},
      {"Open", [&] { keep(ShmMsgQManager::Open(id)); }},
      {"Acquire", [&] { keep(ShmMsgQManager::Acquire(id)); }},
      {"Create", [&] { result = ShmMsgQManager::Create(id); }},
      {"Send", [&] { result = ShmMsgQManager::Send(id, "abc", 3); }},
      {"Initialize", [&] { result = ShmMsgQManager::Initialize(); }},
      {"Release", [&] { ShmMsgQManager::Release(id); }},
      {"ReleaseAll", ShmMsgQManager::ReleaseAll},
      {"Destroy", ShmMsgQManager::Destroy},
      {"Null", [] { ShmMsgQManager::Release(nullptr, 1); }},
      {"Keep", [&] { ShmMsgQManager::Release(queue, 0); }},
      {"Remove", [&] { ShmMsgQManager::Release(queue, 1); }}};
  operations.at(operation)();
  static std::string registry;
  registry.clear();
  KelDebugSinkSet(
      [](const char* text, void*) {
        int number = 0;
        int count = 0;
        if (std::sscanf(text, "Shared Message Queue: id %d refCount %d\n", &number, &count) == 2)
          registry += " " + std::to_string(number) + "x" + std::to_string(count);
      },
      nullptr);
  ShmMsgQManager::Print();
  KelDebugSinkSet(nullptr, nullptr);
  return std::to_string(result) + registry + " " + HostText();
}

// Another process with a registry of its own, which does the steps that it is told.
class Peer {
public:
  Peer()
      : _made(pipe(_steps) + pipe(_results)), _child([this] {
          char step[64];
          while (read(_steps[0], step, sizeof step) == sizeof step) {
            std::string result = Do(step);
            result.resize(sizeof step);
            if (write(_results[1], result.data(), sizeof step) != sizeof step)
              return 1;
          }
          return 0;
        }) {}
  std::string Ask(std::string step) {
    step.resize(64);
    if (write(_steps[1], step.data(), 64) != 64 || read(_results[0], step.data(), 64) != 64)
      return "peer gone";
    return step.substr(0, step.find('\0'));
  }

private:
  int _steps[2];
  int _results[2];
  int _made;
  Child _child;
};

}  // namespace

TEST_F(ManagerQueues, TwoProcessesCountAndShareQueues) {
  std::istringstream script(R"(
    A New 5 = 0 0/0;           A Create 5 = 0 0/0;        A Acquire 5 = 0 0/0;      A Send 5 = 0 0/0;
    A ReleaseAll = 1 0/0;      A Release 5 = 1 0/0;       A Initialize = 1 0/0;     B Initialize = 1 0/0;
    A Open 5 = 0 0/0;          A Create 5 = 0 0/0;        A Send 5 = 0 0/0;         A New 5 = 1 5x1 2/1;
    A Initialize = 1 5x1 2/1;  A New 5 = 0 5x1 2/1;       A Acquire 5 = 2 5x2 2/1;  A Acquire 6 = 0 5x2 2/1;
    A Null = 1 5x2 2/1;        A Remove = 1 5x1 2/1;      A Remove = 1 0/0;         A New 5 = 1 5x1 2/1;
    B Create 5 = 1 5x1 2/1;    B Create 5 = 1 5x1 2/1;    B Send 5 = 1 5x1 2/1;     B Acquire 5 = 1 5x2 2/1;
    B Release 5 = 1 5x1 2/1;   B Remove = 1 0/1;          A Send 5 = 1 5x1 2/1;     B Open 5 = 1 5x1 2/1;
    B Open 5 = 1 5x1 5x1 2/1;  B Acquire 5 = 2 5x2 5x2 2/1;  B Keep = 1 5x2 5x1 2/1;  B Remove = 1 5x2 2/1;
    B Release 5 = 1 5x1 2/1;   B Release 5 = 1 2/1;       B New 7 = 1 7x1 4/2;      B Create 5 = 1 5x1 7x1 4/2;
    B Open 5 = 1 5x1 7x1 5x1 4/2;  B Release 5 = 1 7x1 4/2;  B Create 5 = 1 5x1 7x1 4/2;  B ReleaseAll = 1 2/1;
    B New 7 = 1 7x1 4/2;       B Destroy = 1 4/2;         B Destroy = 1 4/2;        B Create 7 = 0 4/2;
    A Create 7 = 1 7x1 5x1 4/2;  A Acquire 7 = 1 7x2 5x1 4/2;  A Keep = 1 7x1 5x1 4/2;  A Remove = 1 5x1 2/1;
    A ReleaseAll = 1 0/0;      A New 5 = 1 5x1 2/1;       A Keep = 1 2/1;           A Destroy = 1 2/1;)");
  Peer peer;
  std::string row;
  for (int i = 0; std::getline(script >> std::ws, row, ';'); ++i) {
    const auto equals = row.find(" = ");
    const std::string step = row.substr(2, equals - 2);
    ASSERT_EQ(row[0] == 'A' ? Do(step) : peer.Ask(step), row.substr(equals + 3)) << i << " " << row;
  }
}

TEST_F(ManagerQueues, ThreadsSendThroughTheManagerWhileOneReceives) {
  constexpr int THREADS = 4;
  constexpr int MESSAGES = 500;
  ASSERT_EQ(ShmMsgQManager::Initialize(), 1);
  ShmMsgQ* queue = ShmMsgQManager::New(5, 200);
  std::list<std::thread> senders;
  std::atomic<int> failed{0};
  for (int thread = 0; thread < THREADS; ++thread)
    senders.emplace_back([thread, &failed] {
      for (int number = 0; number < MESSAGES; ++number) {
        const int message[] = {thread, number, ~number};
        const auto* bytes = reinterpret_cast<const char*>(message);
        failed +=
            Await([&] { return ShmMsgQManager::Send(5, bytes, sizeof message) == 1; }) ? 0 : 1;
      }
    });
  int next[THREADS] = {};
  for (int i = 0; i < THREADS * MESSAGES; ++i) {
    int message[3];
    ASSERT_EQ(queue->Recv(reinterpret_cast<char*>(message), sizeof message), 12);
    EXPECT_EQ(message[1], next[message[0]]++);
    EXPECT_EQ(message[2], ~message[1]);
  }
  for (std::thread& sender : senders)
    sender.join();
  EXPECT_EQ(failed, 0);
}
