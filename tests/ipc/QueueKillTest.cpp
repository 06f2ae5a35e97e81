#include "ipc/IpcHost.h"
#include "support/Emulator.h"

#include <vector>

#include <sys/ptrace.h>

namespace {

using QueueKill = EmptiedHost;

const std::string MESSAGE = "a message of thirty-one letters";

// How far a send has come, seen from outside: mutex, length and payload in the ring, write offset,
// semaphore. The length starts two bytes before the ring's end.
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

constexpr std::size_t ALL = 100000;

// Lets a sender do `steps` instructions and kills it. Returns the phase after each of `ALL` that it
// has, else after the last one.
std::vector<std::string> SendStep(Queue& queue, std::size_t steps) {
  const int start = queue._capacity - 2;
  *queue._header = {start, start};
  std::memset(queue.Ring(), '.', static_cast<std::size_t>(queue._capacity));
  semctl(queue._semaphoreId, 0, SETVAL, 0);
  Child sender([&] {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
      raise(SIGSTOP);
    return queue.Send(MESSAGE.data(), static_cast<int>(MESSAGE.size()));
  });
  int status = 0;
  waitpid(sender.pid, &status, 0);
  std::vector<std::string> phases;
  for (std::size_t n = 1; n <= steps && WIFSTOPPED(status); ++n) {
    if (ptrace(PTRACE_SINGLESTEP, sender.pid, nullptr, nullptr) != 0)
      break;
    waitpid(sender.pid, &status, 0);
    if (steps == ALL && WIFSTOPPED(status))
      phases.push_back(PhaseText(queue));
  }
  if (steps != ALL)
    phases.push_back(PhaseText(queue));
  return phases;
}

}  // namespace

TEST_F(QueueKill, SenderKilledAtAnyInstructionLeavesWholeMessagesAndPerhapsATakenMutex) {
  SKIP_UNDER_EMULATOR("ptrace");
#ifdef VORN_TEST_SANITIZER
  GTEST_SKIP() << "a sanitizer's own code would be stepped through";
#endif
  OwnQueue queue(1, 1, 60);
  ASSERT_EQ(queue.Send("", 0), 1);  // what is called is bound from here on
  const std::vector<std::string> all = SendStep(queue, ALL);
  if (all.empty())
    GTEST_SKIP() << "no single steps here";
  std::vector<std::string> reached;
  for (std::size_t step = 1; step < all.size(); ++step) {
    const bool isNextNew = all[step] != all[step - 1];
    if (!isNextNew && (step < 2 || all[step - 1] == all[step - 2]) && step % 97 != 0)
      continue;  // on both sides of each change, and now and then
    const std::string last = SendStep(queue, step).back();
    SCOPED_TRACE(testing::Message() << step << " instructions: " << last);
    ASSERT_EQ(PhaseText(queue), last) << "death changes nothing";
    if (reached.empty() || reached.back() != last)
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
  EXPECT_EQ(reached, (std::vector<std::string>{
                         "free", "taken", "taken length", "taken length payload",
                         "taken length payload visible", "taken length payload visible signalled",
                         "free length payload visible signalled"}));
}
