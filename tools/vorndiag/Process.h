#ifndef TOOLS_VORNDIAG_PROCESS_H
#define TOOLS_VORNDIAG_PROCESS_H

#include <ctime>
#include <string>

/// A process that the kernel names as the last user of something.
enum class ProcessState {
  UNKNOWN,  ///< none, or one of another process namespace, which the kernel calls 0
  GONE,     ///< ended, also when its number has been given to another since
  STOPPED,  ///< by a signal or a debugger
  ALIVE,
};

/// What became of `pid` since it did something at `time`.
ProcessState ProcessStateGet(int pid, std::time_t time);

/// "pid 12 (sensor)", "pid 12, gone".
std::string ProcessText(int pid, std::time_t time);

#endif
