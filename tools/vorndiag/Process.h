#ifndef VORNDIAG_PROCESS_H
#define VORNDIAG_PROCESS_H

#include <ctime>
#include <optional>
#include <string>

/// What became of the process that the kernel names as the last user of something. A wrong "gone"
/// is dangerous: a mutex is then given away while its holder writes. So only what is certain counts
/// as gone, and whatever cannot be seen is unknown.

enum class ProcessState {
  UNKNOWN,  ///< of another process namespace, which the kernel calls 0; or /proc does not show it
  GONE,     ///< it has ended, or is a zombie, or its number belongs to a younger process
  STOPPED,  ///< by a signal or a debugger
  ALIVE,
};

/// A process at the time of a look.
struct Process {
  int pid = 0;
  ProcessState state = ProcessState::UNKNOWN;
  std::string name;  ///< empty where /proc does not show it
};

/// Looks at `pid` (0 or less: unknown), which did something at `time` (seconds since 1970; 0: never
/// mind when). Changes nothing: the only signal sent is 0, which asks whether there is such a
/// process.
///
/// A clock that is set forward by seconds makes processes look younger than they are: what one of
/// them did before that then seems to be another one's deed.
Process ProcessLook(int pid, std::time_t time);

/// "pid 12 (sensor)", "pid 12 (sensor), stopped", "pid 12, gone", "pid 12, which /proc does not
/// show here", "a process of another process namespace".
std::string ProcessText(const Process& process);

/// What /proc tells of a process.
struct ProcessFacts {
  std::string name;
  char state = '?';         ///< as in /proc: Z is a zombie, T and t are stopped
  int threads = 0;          ///< those that have not ended, and the first one in any case
  std::time_t started = 0;  ///< seconds since 1970
};

/// Reads the line of /proc/PID/stat on a host that was started at `boot`, in seconds since 1970;
/// none for a line that is not whole.
std::optional<ProcessFacts> ProcessFactsGet(const std::string& line, std::time_t boot);

/// The state of a process that did something at `time`. `exists` is what the kernel says of its
/// number; `facts` are none when /proc does not show it.
ProcessState ProcessStateGet(bool exists, const std::optional<ProcessFacts>& facts,
                             std::time_t time);

#endif
