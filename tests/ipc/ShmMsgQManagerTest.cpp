#include "ipc/ShmMsgQManager.h"

#include "ipc/IpcHost.h"
#include "platform/KelDebug.h"

#include <iterator>

#include <sys/socket.h>

namespace {

class ManagerQueues : public EmptiedHost {
protected:
  void TearDown() override {
    ShmMsgQManager::Destroy();
    EmptiedHost::TearDown();
  }
};

ShmMsgQ* last = nullptr;  // what was returned last

std::string Keep(ShmMsgQ* queue) {
  last = queue != nullptr ? queue : last;
  return queue != nullptr ? "object" : "null";
}

// The operations as functions of a queue id that tell what came of them.
using Operation = std::string(int id);
// clang-format off
Operation& Initialize = *[](int) { return std::to_string(ShmMsgQManager::Initialize()); };
Operation& New = *[](int id) { return Keep(ShmMsgQManager::New(id, 16)); };
Operation& Open = *[](int id) { return Keep(ShmMsgQManager::Open(id)); };
Operation& Acquire = *[](int id) {
  const ShmMsgQ* before = last;
  const std::string result = Keep(ShmMsgQManager::Acquire(id));
  return before == last && result != "null" ? "same" : result;
};
Operation& Create = *[](int id) { return std::to_string(ShmMsgQManager::Create(id)); };
Operation& Send = *[](int id) { return std::to_string(ShmMsgQManager::Send(id, "abc", 3)); };
Operation& Receive = *[](int) { return std::to_string(last->Recv(nullptr, 0)); };
Operation& Release = *[](int id) { ShmMsgQManager::Release(id); return std::string(); };
Operation& ReleaseLast = *[](int) { ShmMsgQManager::Release(last, 0); return std::string(); };
Operation& RemoveLast = *[](int) { ShmMsgQManager::Release(last, 1); return std::string(); };
Operation& ReleaseAll = *[](int) { ShmMsgQManager::ReleaseAll(); return std::string(); };
Operation& Destroy = *[](int) { ShmMsgQManager::Destroy(); return std::string(); };
// clang-format on

struct Step {
  char process;
  Operation& operation;
  int id;
  const char* result;
  const char* registry;  // of that process, in its order: id and count of each object
  const char* left;      // sets and segments on the host
};

// clang-format off
const Step STEPS[] = {
    {'A', New, 5, "null", "", "0/0"},  // before Initialize
    {'A', Open, 5, "null", "", "0/0"},
    {'A', Create, 5, "0", "", "0/0"},
    {'A', Acquire, 5, "null", "", "0/0"},
    {'A', Send, 5, "0", "", "0/0"},
    {'A', Release, 5, "", "", "0/0"},
    {'A', ReleaseAll, 0, "", "", "0/0"},
    {'A', Initialize, 0, "1", "", "0/0"},
    {'B', Initialize, 0, "1", "", "0/0"},
    {'A', Open, 5, "null", "", "0/0"},  // no queue
    {'A', Create, 5, "0", "", "0/0"},
    {'A', Send, 5, "0", "", "0/0"},
    {'A', New, 5, "object", " 5x1", "2/1"},
    {'A', New, 5, "null", " 5x1", "2/1"},
    {'A', Acquire, 5, "same", " 5x2", "2/1"},
    {'A', Acquire, 6, "null", " 5x2", "2/1"},
    {'A', RemoveLast, 0, "", " 5x1", "2/1"},
    {'B', Create, 5, "1", " 5x1", "2/1"},
    {'B', Create, 5, "1", " 5x1", "2/1"},
    {'B', Send, 5, "1", " 5x1", "2/1"},
    {'A', Receive, 0, "0", " 5x1", "2/1"},
    {'B', Acquire, 5, "object", " 5x2", "2/1"},
    {'B', Release, 5, "", " 5x1", "2/1"},
    {'B', RemoveLast, 0, "", "", "0/1"},  // the other process, which is not asked, is attached
    {'A', Send, 5, "1", " 5x1", "2/1"},    // makes it again
    {'B', Open, 5, "object", " 5x1", "2/1"},
    {'B', Open, 5, "object", " 5x1 5x1", "2/1"},
    {'B', Acquire, 5, "same", " 5x2 5x2", "2/1"},
    {'B', ReleaseLast, 0, "", " 5x2 5x1", "2/1"},
    {'B', RemoveLast, 0, "", " 5x2", "2/1"},  // kept for the other object
    {'B', Release, 5, "", " 5x1", "2/1"},
    {'B', New, 7, "object", " 5x1 7x1", "4/2"},
    {'B', Open, 5, "object", " 5x1 7x1 5x1", "4/2"},
    {'B', Release, 5, "", " 7x1", "4/2"},
    {'B', Create, 5, "1", " 5x1 7x1", "4/2"},  // in front
    {'B', ReleaseAll, 0, "", "", "2/1"},      // only what it has made
    {'B', New, 7, "object", " 7x1", "4/2"},
    {'B', Destroy, 0, "", "", "4/2"},
    {'B', Create, 7, "0", "", "4/2"},
    {'A', Create, 7, "1", " 7x1 5x1", "4/2"},
    {'A', Acquire, 7, "object", " 7x2 5x1", "4/2"},
    {'A', ReleaseLast, 0, "", " 7x1 5x1", "4/2"},
    {'A', RemoveLast, 0, "", " 5x1", "2/1"},
    {'A', ReleaseAll, 0, "", "", "0/0"},
    {'A', Create, 5, "0", "", "0/0"},
};
// clang-format on

std::string StepText(const std::string& result, const std::string& registry,
                     const std::string& left) {
  return "result " + result + ", registry" + registry + ", left " + left;
}

std::string Do(const Step& step) {
  const std::string result = step.operation(step.id);
  std::string registry;
  KelDebugSinkSet(
      [](const char* text, void* to) {
        int id = 0;
        int count = 0;
        std::sscanf(text, "Shared Message Queue: id %d refCount %d\n", &id, &count);
        *static_cast<std::string*>(to) += " " + std::to_string(id) + "x" + std::to_string(count);
      },
      &registry);
  ShmMsgQManager::Print();
  KelDebugSinkSet(nullptr, nullptr);
  return StepText(result, registry, HostText());
}

}  // namespace

TEST_F(ManagerQueues, TwoProcessesCountAndShareQueues) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  {
    Child other([&] {  // process B, with a registry of its own, does the steps it is told
      for (std::size_t i = 0; read(ends[1], &i, sizeof i) == sizeof i;) {
        const std::string text = Do(STEPS[i]);
        EXPECT_GT(write(ends[1], text.data(), text.size()), 0);
      }
      return 0;
    });
    for (std::size_t i = 0; i < std::size(STEPS); ++i) {
      char text[200] = "";
      if (STEPS[i].process == 'A') {
        Do(STEPS[i]).copy(text, sizeof text);
      } else {
        ASSERT_GT(write(ends[0], &i, sizeof i), 0);
        ASSERT_GT(read(ends[0], text, sizeof text), 0);
      }
      ASSERT_EQ(text, StepText(STEPS[i].result, STEPS[i].registry, STEPS[i].left))
          << "step " << i << " of process " << STEPS[i].process << ", queue " << STEPS[i].id;
    }
  }
  close(ends[0]);
  close(ends[1]);
}
