#include "ipc/ShmMsgQManager.h"

#include "ipc/IpcHost.h"

#include <regex>

namespace {

using ManagerQueues = EmptiedHost;

ShmMsgQ* last = nullptr;  // what was returned last

std::string Made(ShmMsgQ* queue) {
  last = queue != nullptr ? queue : last;
  return queue != nullptr ? "object" : "null";
}

std::string Acquired(ShmMsgQ* queue) {
  return queue != nullptr && queue == last ? "same" : Made(queue);
}

// The operations as functions of a queue id that tell what came of them. The others are those of
// another process, which has no registry.
// clang-format off
using Operation = std::string(int id);
Operation& Initialize = *[](int) { return std::to_string(ShmMsgQManager::Initialize()); };
Operation& New = *[](int id) { return Made(ShmMsgQManager::New(id, 16)); };
Operation& Open = *[](int id) { return Made(ShmMsgQManager::Open(id)); };
Operation& Acquire = *[](int id) { return Acquired(ShmMsgQManager::Acquire(id)); };
Operation& Create = *[](int id) { return std::to_string(ShmMsgQManager::Create(id)); };
Operation& Send = *[](int id) { return std::to_string(ShmMsgQManager::Send(id, "abc", 3)); };
Operation& Release = *[](int id) { ShmMsgQManager::Release(id); return std::string(); };
Operation& ReleaseLast = *[](int) { ShmMsgQManager::Release(last, 0); return std::string(); };
Operation& RemoveLast = *[](int) { ShmMsgQManager::Release(last, -1); return std::string(); };
Operation& ReleaseAll = *[](int) { ShmMsgQManager::ReleaseAll(); return std::string(); };
Operation& Destroy = *[](int) { ShmMsgQManager::Destroy(); return std::string(); };
Operation& OtherNew = *[](int id) { return std::to_string(Queue(1, id, 16U).IsValid()); };
Operation& OtherReceive = *[](int id) { return Queue(1, id).Receive(9); };
Operation& OtherRemove = *[](int id) { Queue(1, id).Destroy(); return std::string(); };

const struct {
  Operation& operation;
  int id;
  const char* result;
  const char* registry;  // in its order: id and count of each object
  const char* left;      // sets and segments on the host
} STEPS[] = {
    {New, 5, "null", "", "0/0"},  // before Initialize
    {Open, 5, "null", "", "0/0"},
    {Create, 5, "0", "", "0/0"},
    {Acquire, 5, "null", "", "0/0"},
    {Send, 5, "0", "", "0/0"},
    {Release, 5, "", "", "0/0"},
    {ReleaseAll, 0, "", "", "0/0"},
    {Initialize, 0, "1", "", "0/0"},
    {Open, 5, "null", "", "0/0"},  // no queue
    {Create, 5, "0", "", "0/0"},
    {Send, 5, "0", "", "0/0"},
    {New, 5, "object", " 5x1", "2/1"},
    {New, 5, "null", " 5x1", "2/1"},
    {Acquire, 5, "same", " 5x2", "2/1"},
    {Acquire, 6, "null", " 5x2", "2/1"},
    {RemoveLast, 0, "", " 5x1", "2/1"},
    {Create, 5, "1", " 5x1", "2/1"},
    {Send, 5, "1", " 5x1", "2/1"},
    {OtherReceive, 5, "abc", " 5x1", "2/1"},
    {OtherRemove, 5, "", " 5x1", "0/1"},  // this process is attached
    {Send, 5, "1", " 5x1", "2/1"},        // and makes it again
    {Release, 5, "", "", "2/1"},
    {Open, 5, "object", " 5x1", "2/1"},
    {Open, 5, "object", " 5x1 5x1", "2/1"},
    {Acquire, 5, "same", " 5x2 5x2", "2/1"},
    {ReleaseLast, 0, "", " 5x2 5x1", "2/1"},
    {RemoveLast, 0, "", " 5x2", "2/1"},  // kept for the other object
    {Release, 5, "", " 5x1", "2/1"},
    {New, 7, "object", " 5x1 7x1", "4/2"},
    {Open, 5, "object", " 5x1 7x1 5x1", "4/2"},
    {Release, 5, "", " 7x1", "4/2"},
    {Create, 5, "1", " 5x1 7x1", "4/2"},  // in front
    {ReleaseAll, 0, "", "", "2/1"},  // only what it has made
    {OtherNew, 7, "1", "", "4/2"},
    {Open, 7, "object", " 7x1", "4/2"},
    {RemoveLast, 0, "", "", "2/1"},  // whoever made it
    {New, 7, "object", " 7x1", "4/2"},
    {Destroy, 0, "", "", "4/2"},
    {Create, 7, "0", "", "4/2"},
    {OtherRemove, 5, "", "", "2/1"},
    {OtherRemove, 7, "", "", "0/0"},
};
// clang-format on

std::string RegistryText() {
  testing::internal::CaptureStderr();
  ShmMsgQManager::Print();
  return std::regex_replace(testing::internal::GetCapturedStderr(),
                            std::regex("\\D+(\\d+)\\D+(\\d+)\n"), " $1x$2");
}

}  // namespace

TEST_F(ManagerQueues, AreCountedAndRemovedByTheLastHolderOnly) {
  for (const auto& step : STEPS) {
    SCOPED_TRACE(testing::Message() << "step " << &step - STEPS << ", queue " << step.id);
    ASSERT_EQ(step.operation(step.id), step.result);
    ASSERT_EQ(RegistryText(), step.registry);
    ASSERT_EQ(HostText(), step.left);
  }
}
