#include "ipc/IpcHost.h"
#include "support/Emulator.h"

#include <algorithm>
#include <vector>

#include <sys/ptrace.h>

namespace {

using QueueKill = IpcHost;

const std::string MESSAGE = "a message of thirty-one letters";

// How far a send has come, seen from outside: mutex, semaphore, length and payload in the ring,
// write offset. The length starts two bytes before the ring's end.
std::string PhaseText(const Queue& queue) {
  const std::string ring = queue.RingText();
  const std::string twice = ring + ring;
  const auto start = ring.size() - 2;
  std::string text = ValueGet(queue._mutexId) != 0 ? "free" : "taken";
  text += twice.compare(start, 4, std::string("\x1f\0\0\0", 4)) == 0 ? " length" : "";
  text += twice.compare(start + 4, MESSAGE.size(), MESSAGE) == 0 ? " payload" : "";
  text += queue._header->writeOffset != static_cast<int>(start) ? " visible" : "";
  text += ValueGet(queue._semaphoreId) != 0 ? " signalled" : "";
  return text;
}

// Kills a sender after `steps` instructions, or lets it end before. Returns the phase it was in,
// and all phases before that, one for each instruction, in `all`.
std::string SendStep(Queue& queue, int steps, std::vector<std::string>* all) {
  const int start = queue._capacity - 2;
  *queue._header = {start, start};
  std::memset(queue.Ring(), '.', static_cast<std::size_t>(queue._capacity));
  semctl(queue._semaphoreId, 0, SETVAL, 0);
  Child sender([&] {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
      return 1;
    raise(SIGSTOP);
    return 2 + queue.Send(MESSAGE.data(), static_cast<int>(MESSAGE.size()));
  });
  int status = 0;
  waitpid(sender.pid, &status, 0);
  for (int step = 0; step < steps && WIFSTOPPED(status); ++step) {
    if (ptrace(PTRACE_SINGLESTEP, sender.pid, nullptr, nullptr) != 0)
      break;
    waitpid(sender.pid, &status, 0);
    if (all != nullptr && WIFSTOPPED(status))
      all->push_back(PhaseText(queue));
  }
  return PhaseText(queue);
}

}  // namespace

TEST_F(QueueKill, SenderKilledAtAnyInstructionLeavesWholeMessagesAndPerhapsATakenMutex) {
  SKIP_UNDER_EMULATOR("ptrace");
#ifdef VORN_TEST_SANITIZER
  GTEST_SKIP() << "a sanitizer's own code would be stepped through";
#endif
  Queue queue(1, 1, 60);
  ASSERT_EQ(queue.Send("", 0), 1);  // what is called is bound from here on
  std::vector<std::string> all;
  SendStep(queue, 100000, &all);
  if (all.empty())
    GTEST_SKIP() << "no single steps here";
  std::vector<int> kills;
  for (int step = 0; step < static_cast<int>(all.size()); ++step)
    if (step % 97 == 0 ||
        all[static_cast<std::size_t>(step)] != all[static_cast<std::size_t>(std::max(step, 1) - 1)])
      kills.insert(kills.end(), {step, step + 1});
  all.erase(std::unique(all.begin(), all.end()), all.end());
  EXPECT_EQ(all, (std::vector<std::string>{"free", "taken", "taken length", "taken length payload",
                                           "taken length payload visible",
                                           "taken length payload visible signalled",
                                           "free length payload visible signalled"}));
  std::vector<std::string> reached;
  for (int steps : kills) {
    const std::string last = SendStep(queue, steps, nullptr);
    ASSERT_EQ(PhaseText(queue), last) << "death changes nothing";
    reached.push_back(last);
    const bool isVisible = last.find("visible") != std::string::npos;
    ASSERT_EQ(queue.SpaceGet(), isVisible ? 60 - 4 - 31 : 60);
    if (isVisible) {
      ASSERT_EQ(queue.Receive(60), MESSAGE);
    }
    if (last.rfind("taken", 0) == 0) {
      ASSERT_EQ(NamedMutexGive(queue._mutexId), 1);
    }
    ASSERT_EQ(queue.Send("next", 4), 1);
    ASSERT_EQ(queue.Receive(60), "next");
  }
  reached.erase(std::unique(reached.begin(), reached.end()), reached.end());
  EXPECT_EQ(reached, all);
}
