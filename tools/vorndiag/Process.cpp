#include "Process.h"

#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>

#include <unistd.h>

namespace {

struct ProcessFacts {
  std::string name;
  char state = '?';         // as in /proc: Z is a zombie, T and t are stopped
  std::time_t started = 0;  // since 1970; 0 when it cannot be told
};

std::time_t BootTimeGet() {
  std::ifstream file("/proc/stat");
  std::string word;
  while (file >> word)
    if (word == "btime") {
      std::time_t time = 0;
      file >> time;
      return time;
    }
  return 0;
}

// The name in /proc/PID/stat is in brackets and may hold anything, brackets and blanks too.
std::optional<ProcessFacts> ProcessFactsGet(int pid) {
  constexpr int FIELDS_BEFORE_START = 18;  // between the state and the start time
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t open = line.find('(');
  const std::size_t close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open)
    return std::nullopt;
  ProcessFacts facts;
  facts.name = line.substr(open + 1, close - open - 1);
  std::istringstream rest(line.substr(close + 1));
  rest >> facts.state;
  std::string skipped;
  for (int i = 0; i < FIELDS_BEFORE_START; ++i)
    rest >> skipped;
  std::int64_t ticks = 0;
  const std::time_t boot = BootTimeGet();
  if (rest >> ticks && boot != 0)
    facts.started = boot + static_cast<std::time_t>(ticks / sysconf(_SC_CLK_TCK));
  return facts;
}

ProcessState StateOf(const std::optional<ProcessFacts>& facts, std::time_t time) {
  // Both times are rounded to seconds. Younger than what it did: its number was used before.
  constexpr std::time_t ROUNDING = 2;
  if (!facts || facts->state == 'Z' || facts->state == 'X' ||
      (time != 0 && facts->started > time + ROUNDING))
    return ProcessState::GONE;
  return facts->state == 'T' || facts->state == 't' ? ProcessState::STOPPED : ProcessState::ALIVE;
}

}  // namespace

ProcessState ProcessStateGet(int pid, std::time_t time) {
  return pid > 0 ? StateOf(ProcessFactsGet(pid), time) : ProcessState::UNKNOWN;
}

std::string ProcessText(int pid, std::time_t time) {
  if (pid <= 0)
    return "a process that cannot be seen from here";
  const std::optional<ProcessFacts> facts = ProcessFactsGet(pid);
  const std::string text = "pid " + std::to_string(pid);
  switch (StateOf(facts, time)) {
  case ProcessState::GONE:
    return text + ", gone";
  case ProcessState::STOPPED:
    return text + " (" + facts->name + "), stopped";
  default:
    return text + " (" + facts->name + ")";
  }
}
