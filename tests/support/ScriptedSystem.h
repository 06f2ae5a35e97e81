#ifndef SUPPORT_SCRIPTED_SYSTEM_H
#define SUPPORT_SCRIPTED_SYSTEM_H

#include <functional>

#include <sys/select.h>

struct hostent;

/// The system calls that the library makes itself, scripted: a test gives a function to those that
/// it lets happen. The linker sends the library's calls here (--wrap), which, `ioctl` and memory
/// apart, are written down with the lower layer's. `close` closes nothing.
struct ScriptedSystem {
  std::function<int(unsigned long request, void* argument)> ioctl;
  std::function<int(int count, fd_set* readable, timeval* wait)> select;
  std::function<int(char* buffer)> gethostname;
  std::function<hostent*(const char* name)> gethostbyname;
  /// The allocation to fail, counted from 1 over malloc, calloc and new; 0: none.
  int failingAllocation = 0;
  int allocations = 0;
};

ScriptedSystem& System();
void SystemReset();

#endif
