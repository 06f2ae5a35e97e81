#ifndef SUPPORT_SCRIPTED_SYSTEM_H
#define SUPPORT_SCRIPTED_SYSTEM_H

#include <cstdio>
#include <functional>
#include <string>

#include <sys/select.h>

struct hostent;

/// The system calls that the library makes itself, scripted: a test gives a function to those that
/// it lets happen. The linker sends the library's calls here (--wrap), which, `ioctl` and memory
/// apart, are written down with the lower layer's. `close` closes nothing.
struct ScriptedSystem {
  std::function<int(unsigned long request, void* argument)> ioctl;
  std::function<int(int count, fd_set* readable, fd_set* writable, fd_set* broken, timeval* wait)>
      select;
  std::function<int(char* buffer)> gethostname;
  std::function<hostent*(const char* name)> gethostbyname;
  std::function<FILE*()> fopen;  ///< none: there is no file
  /// The allocation to fail, counted from 1 over malloc, calloc and new; 0: none.
  int failingAllocation = 0;
  int allocations = 0;
  /// The same counted over allocations and fallible calls of the lower layer, and what it was.
  int failingStep = 0;
  int steps = 0;
  std::string failedStep;
};

ScriptedSystem& System();
/// Counts a step and tells whether it is the one to fail; `errno` is EPERM then.
bool StepFails(const char* step);
/// Blocks of memory that the library has taken since the reset and not given back.
int BlocksHeld();
void SystemReset();

#endif
