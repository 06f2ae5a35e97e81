#ifndef VORNDIAG_COMMANDS_H
#define VORNDIAG_COMMANDS_H

#include <string>
#include <vector>

/// What the command ends with.
enum ExitCode : int {
  EXIT_FINE = 0,     ///< nothing wrong was found, or what was asked for is done
  EXIT_TROUBLE = 1,  ///< something is wrong, an address is refused, or an action failed
  EXIT_USAGE = 2,    ///< wrong option
  EXIT_NOTHING = 3,  ///< there is no such queue or list
};

/// `giveMutex` and `remove` exclude each other; without both the command only looks.
struct QueueOptions {
  int id = 0;
  bool giveMutex = false;  ///< give back the mutex of a dead sender
  bool remove = false;     ///< remove the queue from the host
  bool force = false;      ///< do either also where that may harm a program that lives
};

/// The commands print to standard output and return the exit code: `EXIT_TROUBLE` whenever a line
/// says WRONG. Each is called once in a process, on its only thread.

/// The library's interface table.
ExitCode NicCommand();
/// One queue: its objects and what is wrong with them, or one of the actions.
ExitCode QueueCommand(const QueueOptions& options);
/// All queues of this IPC namespace, a line for each. Takes about a second, however many there are,
/// if something may be wrong with one of them; no time otherwise.
ExitCode QueuesCommand();
/// The host list of `type` ("manager", "app", "managee" or "peer"), whether it admits `addresses`
/// (addresses or names), and which interfaces it leaves in use.
ExitCode HostsCommand(const std::string& type, const std::vector<std::string>& addresses);

#endif
