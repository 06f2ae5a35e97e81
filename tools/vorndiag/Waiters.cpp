#include "vorndiag/Waiters.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A call that waits for a semaphore: its number, and which of its arguments is the set's id. Where
// one call has all of System V in it, its first argument says what is done.
struct WaitingCall {
  long number;
  int setArgument;
  long operation;  // the first argument, if that is not the set; else -1
};

constexpr WaitingCall WAITING_CALLS[] = {
#ifdef SYS_semop
    {SYS_semop, 0, -1},
#endif
#ifdef SYS_semtimedop
    {SYS_semtimedop, 0, -1},
#endif
#ifdef SYS_semtimedop_time64
    {SYS_semtimedop_time64, 0, -1},
#endif
#ifdef SYS_ipc
    {SYS_ipc, 1, 1},
    {SYS_ipc, 1, 4},
#endif
    {-1, 0, -1},
};

std::string LinkGet(const fs::path& path) {
  std::error_code error;
  return fs::read_symlink(path, error).string();
}

// A set's id is another set's in another IPC namespace.
bool SharesIpc(const fs::path& process) {
  const std::string ours = LinkGet("/proc/self/ns/ipc");
  return !ours.empty() && LinkGet(process / "ns/ipc") == ours;
}

std::optional<int> ThreadLook(const fs::path& thread) {
  std::ifstream file(thread / "syscall");
  std::string line;
  std::getline(file, line);
  return WaitedSetGet(line);
}

// The sets in `ids` for which threads of a process wait.
std::set<int> ProcessLookFor(const fs::path& process, const std::set<int>& ids) {
  std::set<int> waited;
  std::error_code error;
  for (fs::directory_iterator thread(process / "task", error), end; !error && thread != end;
       thread.increment(error))
    if (const std::optional<int> set = ThreadLook(thread->path()); set && ids.contains(*set))
      waited.insert(*set);
  return waited.empty() || !SharesIpc(process) ? std::set<int>() : waited;
}

int PidGet(const fs::path& path) {
  const std::string name = path.filename().string();
  const bool isNumber = name.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? std::atoi(name.c_str()) : 0;
}

}  // namespace

std::optional<int> WaitedSetGet(const std::string& line) {
  std::istringstream words(line);
  long number = -1;
  unsigned long arguments[2] = {};
  if (!(words >> std::dec >> number >> std::hex >> arguments[0] >> arguments[1]))
    return std::nullopt;  // "running", or a call that is not over
  for (const WaitingCall& call : WAITING_CALLS)
    if (number >= 0 && call.number == number &&
        (call.operation < 0 || static_cast<long>(arguments[0]) == call.operation))
      return static_cast<int>(arguments[call.setArgument]);
  return std::nullopt;
}

std::map<int, std::vector<Process>> WaitersFind(const std::set<int>& ids) {
  std::map<int, std::vector<Process>> waiters;
  std::error_code error;
  if (ids.empty() || LinkGet("/proc/self") != std::to_string(getpid()))
    return waiters;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const int pid = PidGet(entry->path());
    if (pid <= 0)
      continue;
    for (const int set : ProcessLookFor(entry->path(), ids))
      waiters[set].push_back(ProcessLook(pid, 0));
  }
  return waiters;
}
