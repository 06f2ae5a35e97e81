#ifndef TOOLS_VORNDIAG_COMMANDS_H
#define TOOLS_VORNDIAG_COMMANDS_H

#include <string>
#include <vector>

/// What the command ends with.
enum ExitCode : int {
  EXIT_FINE = 0,     ///< nothing wrong was found, or what was asked for is done
  EXIT_TROUBLE = 1,  ///< something is wrong, an address is refused, or an action failed
  EXIT_USAGE = 2,    ///< wrong option
  EXIT_NOTHING = 3,  ///< there is no such queue or list
};

struct QueueOptions {
  int id = 0;
  bool giveMutex = false;
  bool remove = false;
  bool force = false;
};

/// The commands print to standard output and return the exit code.
ExitCode NicCommand();
ExitCode QueueCommand(const QueueOptions& options);
ExitCode QueuesCommand();
ExitCode HostsCommand(const std::string& type, const std::vector<std::string>& addresses);

#endif
