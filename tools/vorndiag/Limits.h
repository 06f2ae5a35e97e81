#ifndef VORNDIAG_LIMITS_H
#define VORNDIAG_LIMITS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The limits of this host and of this process's namespaces that the library can meet.

/// What the kernel says, as numbers. None where it says nothing.
struct LimitsLook {
  using Number = std::optional<std::int64_t>;
  static constexpr std::int64_t UNLIMITED = INT64_MAX;  ///< and what is more than that

  Number segments, segmentsUsed;        ///< of the IPC namespace
  Number segmentBytes, largestSegment;  ///< of one segment
  Number pages, pagesUsed, pageSize;    ///< of all segments; the size is in bytes
  Number sets, setsUsed;                ///< of the IPC namespace
  Number semaphores, semaphoresUsed;    ///< of all sets
  Number semaphoresPerSet, semaphoresPerCall;
  Number receiveBuffer, sendBuffer;    ///< bytes that a socket may ask for
  Number receiveDefault, sendDefault;  ///< bytes that the library asks for by default
  Number memberships;                  ///< groups times interfaces, of one socket
  Number interfaces;                   ///< multicast-capable ones in the library's table
  Number descriptors;                  ///< of a process
  Number selectable;                   ///< descriptors that can be waited on
  Number priority;                     ///< highest real-time priority of an ordinary process
  bool mayPassPriority = false;        ///< this process may schedule as it likes
  std::string ipcNamespace, initIpcNamespace;  ///< of this process and of process 1; empty: hidden
  std::string netNamespace, initNetNamespace;
  bool hasSessionManager = false;  ///< one that knows of users' logins
  bool removesIpc = false;         ///< and removes a user's objects at the last logout
  bool isOrdinaryUser = false;     ///< whose objects it would remove
};

/// Looks. Makes one socket and closes it; changes nothing. The session manager's files are looked
/// for below `root`.
LimitsLook LimitsLookGet(const std::string& root = "");

struct Limit {
  std::string name;          ///< such as "segments"; stable
  LimitsLook::Number value;  ///< none: unlimited, hidden, or not a number
  LimitsLook::Number used;   ///< none: nothing that can be counted
  std::string text;          ///< value and use, where they are no numbers
  bool isTrouble = false;    ///< it is reached
  std::string refused;       ///< what is refused then, or what happens
  std::string raise;         ///< the one command that raises it
};

/// What the numbers mean. A pure function.
std::vector<Limit> LimitsGet(const LimitsLook& look);

#endif
