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

/// How a command prints what it found. As JSON it is one object on one line; a live view prints one
/// such line each time. docs/operations.md names the fields.
enum class Format { TEXT, JSON };

/// A live view of queues.
struct LiveOptions {
  bool isOn = false;
  int seconds = 1;  ///< between two prints
  int looks = 0;    ///< prints; 0: until a signal ends the program
};

/// At most one of `giveMutex`, `remove`, `heal` and `live.isOn`; without them the command only
/// looks.
struct QueueOptions {
  int id = 0;
  bool giveMutex = false;  ///< give back the mutex of a dead sender
  bool remove = false;     ///< remove the queue from the host
  bool force = false;      ///< do either also where that may harm a program that lives
  bool isSure = false;     ///< do not ask before removing
  bool heal = false;       ///< do what cannot harm, see QueueHeal.h
  LiveOptions live;
};

struct QueuesOptions {
  bool heal = false;
  LiveOptions live;
};

struct HostsOptions {
  std::string type;  ///< "manager", "app", "managee" or "peer"
  std::vector<std::string> addresses;
};

struct DecodeOptions {
  std::string form;  ///< "time", "sn" or "bitmap"
  std::vector<std::string> hex;
  bool isLittle = false;
};

struct McastOptions {
  std::string action;               ///< "send", "recv" or "check"
  unsigned int group = 0xEFFF564E;  ///< 239.255.86.78, of the range for one's own site
  int port = 7478;
  int count = 10;          ///< datagrams from each interface
  double interval = 0.02;  ///< seconds between two of them
  int timeToLive = 1;
  bool loopback = true;   ///< this host hears what it sends
  double wait = 0.5;      ///< of `check`: seconds for what comes late
  double seconds = 0;     ///< of `recv`: how long; 0: until a signal
  std::string hosts;      ///< type of the host list to prune by; empty: none
  unsigned int peer = 0;  ///< address of the other host; 0: not said
};

/// The commands print to standard output and return the exit code: `EXIT_TROUBLE` whenever a line
/// says WRONG. Each is called once in a process, on its only thread.

/// The library's interface table.
ExitCode NicCommand(Format format);
/// One queue: its objects and what is wrong with them, a live view of it, or one of the actions.
ExitCode QueueCommand(const QueueOptions& options, Format format);
/// All queues of this IPC namespace, a line for each. Takes about a second, however many there are,
/// if something may be wrong with one of them; no time otherwise.
ExitCode QueuesCommand(const QueuesOptions& options, Format format);
/// The host list of a type, what is odd in it, whether it admits `addresses` (addresses or names),
/// and which interfaces it leaves in use.
ExitCode HostsCommand(const HostsOptions& options, Format format);
/// What wire bytes stand for.
ExitCode DecodeCommand(const DecodeOptions& options, Format format);
/// The limits that the library can meet, how much of each is used, and how it is raised.
ExitCode LimitsCommand(Format format);
/// Sends to a group, receives from it, or finds out whether that works.
ExitCode McastCommand(const McastOptions& options, Format format);

#endif
