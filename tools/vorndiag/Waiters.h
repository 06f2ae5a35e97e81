#ifndef VORNDIAG_WAITERS_H
#define VORNDIAG_WAITERS_H

#include "vorndiag/Process.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Who waits for a semaphore. The kernel tells how many, not who: so the processes are asked what
/// they wait for. Only root and a process's own user are told, and only in this process namespace;
/// whoever cannot be seen is missing.

/// The set for which a thread waits, by its line of /proc/PID/syscall; none if it does something
/// else.
std::optional<int> WaitedSetGet(const std::string& line);

/// The processes of this IPC namespace that wait for the sets in `ids`, by set; each once.
std::map<int, std::vector<Process>> WaitersFind(const std::set<int>& ids);

#endif
