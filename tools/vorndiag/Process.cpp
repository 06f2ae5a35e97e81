#include "vorndiag/Process.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace {

// Mounted in another process namespace, /proc would tell of other processes under our numbers.
bool ProcIsOurs() {
  char pid[16] = {};
  return readlink("/proc/self", pid, sizeof pid - 1) > 0 && pid == std::to_string(getpid());
}

std::time_t BootTimeGet() {
  timespec now{};
  timespec sinceBoot{};
  clock_gettime(CLOCK_REALTIME, &now);
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  return now.tv_sec - sinceBoot.tv_sec;
}

std::optional<ProcessFacts> ProcessFactsLook(int pid) {
  if (!ProcIsOurs())
    return std::nullopt;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  return ProcessFactsGet(line, BootTimeGet());
}

// Not ours to signal is also an answer: there is such a process.
bool ProcessExists(int pid) { return kill(pid, 0) == 0 || errno != ESRCH; }

}  // namespace

// The name in the line is in brackets and may hold anything, brackets and blanks too.
std::optional<ProcessFacts> ProcessFactsGet(const std::string& line, std::time_t boot) {
  constexpr int FIELDS_BEFORE_THREADS = 16;  // between the state and the number of threads
  const std::size_t open = line.find('(');
  const std::size_t close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open)
    return std::nullopt;
  ProcessFacts facts;
  facts.name = line.substr(open + 1, close - open - 1);
  std::istringstream rest(line.substr(close + 1));
  rest >> facts.state;
  std::string skipped;
  for (int i = 0; i < FIELDS_BEFORE_THREADS; ++i)
    rest >> skipped;
  std::int64_t ticks = 0;
  if (!(rest >> facts.threads >> skipped >> ticks))
    return std::nullopt;
  facts.started = boot + static_cast<std::time_t>(ticks / sysconf(_SC_CLK_TCK));
  return facts;
}

ProcessState ProcessStateGet(bool exists, const std::optional<ProcessFacts>& facts,
                             std::time_t time) {
  // `time` is cut to whole seconds, and so are both parts of the start.
  constexpr std::time_t ROUNDING = 2;
  if (!exists)
    return ProcessState::GONE;
  if (!facts)
    return ProcessState::UNKNOWN;
  // A process whose first thread has ended is shown as a zombie while its other threads go on.
  if ((facts->state == 'Z' || facts->state == 'X') && facts->threads <= 1)
    return ProcessState::GONE;
  if (time != 0 && facts->started > time + ROUNDING)
    return ProcessState::GONE;
  return facts->state == 'T' || facts->state == 't' ? ProcessState::STOPPED : ProcessState::ALIVE;
}

Process ProcessLook(int pid, std::time_t time) {
  Process process;
  process.pid = pid;
  if (pid <= 0)
    return process;
  const bool exists = ProcessExists(pid);
  const std::optional<ProcessFacts> facts = exists ? ProcessFactsLook(pid) : std::nullopt;
  process.state = ProcessStateGet(exists, facts, time);
  if (facts)
    process.name = facts->name;
  return process;
}

std::string ProcessText(const Process& process) {
  if (process.pid <= 0)
    return "a process of another process namespace";
  const std::string text = "pid " + std::to_string(process.pid);
  switch (process.state) {
  case ProcessState::UNKNOWN:
    return text + ", which /proc does not show here";
  case ProcessState::GONE:
    return text + ", gone";
  case ProcessState::STOPPED:
    return text + " (" + process.name + "), stopped";
  case ProcessState::ALIVE:
    break;
  }
  return text + " (" + process.name + ")";
}
