#ifndef SUPPORT_SCRIPTED_SYSTEM_H
#define SUPPORT_SCRIPTED_SYSTEM_H

#include <functional>
#include <string>
#include <vector>

#include <sys/select.h>

struct hostent;

/// The system calls that the library makes itself, scripted. The linker sends the library's calls
/// here (--wrap); an empty function means the real call.
struct ScriptedSystem {
  std::vector<std::string> calls;  ///< the names of the calls, with what matters of their arguments
  std::function<int(int descriptor, unsigned long request, void* argument)> ioctl;
  std::function<int(int count, fd_set* readable, timeval* wait)> select;
  std::function<int(char* buffer, std::size_t length)> gethostname;
  std::function<hostent*(const char* name)> gethostbyname;
  std::function<int(int descriptor)> close;
  /// The allocation to fail, counted from 1 over malloc, calloc and new; 0: none.
  int failingAllocation = 0;
  int allocations = 0;
};

ScriptedSystem& System();
void SystemReset();

#endif
