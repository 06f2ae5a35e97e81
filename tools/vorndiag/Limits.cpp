#include "vorndiag/Limits.h"

#include <algorithm>

namespace {

using Number = LimitsLook::Number;

constexpr std::int64_t IDS_MAX = 32768;         // the kernel has no more ids of one kind
constexpr std::int64_t BUFFER_MAX = INT32_MAX;  // the kernel counts in an int

// Twice as much, at most `most`, or room for what is used.
std::int64_t MoreGet(const Number& value, const Number& used,
                     std::int64_t most = LimitsLook::UNLIMITED) {
  const std::int64_t twice = value.value_or(0) > most / 2 ? most : 2 * value.value_or(0);
  return std::max(twice, used.value_or(0) + 1);
}

std::string SysctlText(const std::string& name, const std::string& value) {
  return "sysctl -w " + name + "=" + value;
}

bool IsReached(const Number& value, const Number& used) { return value && used && *used >= *value; }

// What a number cannot say.
std::string NumberNote(const Number& value) {
  if (!value)
    return "hidden";
  return *value == LimitsLook::UNLIMITED ? "unlimited" : "";
}

Limit LimitMake(const std::string& name, const Number& value, const Number& used,
                const std::string& refused, const std::string& raise) {
  Limit limit{name, value, used, NumberNote(value), IsReached(value, used), refused, raise};
  if (value == LimitsLook::UNLIMITED) {
    limit.value.reset();
    limit.raise = "-";
  }
  return limit;
}

// Four numbers in one: those that stay are written as they are.
std::string SemaphoresRaise(const LimitsLook& look, std::int64_t perSet, std::int64_t all,
                            std::int64_t sets) {
  return SysctlText("kernel.sem", "\"" + std::to_string(std::max(perSet, std::int64_t{1})) + " " +
                                      std::to_string(all) + " " +
                                      std::to_string(look.semaphoresPerCall.value_or(500)) + " " +
                                      std::to_string(sets) + "\"");
}

Number RoomForPair(const Number& used) { return used.value_or(0) + 2; }

void SegmentsAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  const std::string refusal = "`VORN: shared memory: unable to create new shared handle`";
  const auto raise = [](const char* name, std::int64_t value) {
    return SysctlText(name, std::to_string(value));
  };
  limits->push_back(
      LimitMake("segments", look.segments, look.segmentsUsed, "a new queue: " + refusal,
                raise("kernel.shmmni", MoreGet(look.segments, look.segmentsUsed, IDS_MAX))));
  Limit largest =
      LimitMake("segment-bytes", look.segmentBytes, look.largestSegment,
                "a new queue that is larger: " + refusal,
                raise("kernel.shmmax", MoreGet(look.segmentBytes, look.largestSegment)));
  largest.isTrouble = false;  // one as large as may be is no reason to refuse others
  limits->push_back(largest);
  limits->push_back(LimitMake("segment-pages", look.pages, look.pagesUsed,
                              "a new queue, in pages of " +
                                  std::to_string(look.pageSize.value_or(0)) + " bytes: " + refusal,
                              raise("kernel.shmall", MoreGet(look.pages, look.pagesUsed))));
}

// A new queue needs two of these: one left is none.
Limit PairLimit(const std::string& name, const Number& value, const Number& used,
                const std::string& raise) {
  Limit limit =
      LimitMake(name, value, used,
                "a new queue, which needs two: `VORN: unable to allocate named semaphore`", raise);
  limit.isTrouble = value && used && *used > *value - 2;
  return limit;
}

void SetsAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  const std::int64_t perSet = look.semaphoresPerSet.value_or(0);
  const std::int64_t all = look.semaphores.value_or(0);
  const std::int64_t sets = look.sets.value_or(0);
  limits->push_back(PairLimit(
      "sets", look.sets, look.setsUsed,
      SemaphoresRaise(look, perSet, all, MoreGet(look.sets, RoomForPair(look.setsUsed), IDS_MAX))));
  limits->push_back(PairLimit(
      "semaphores", look.semaphores, look.semaphoresUsed,
      SemaphoresRaise(look, perSet,
                      MoreGet(look.semaphores, RoomForPair(look.semaphoresUsed), BUFFER_MAX),
                      sets)));
  Limit limit = LimitMake("semmsl", look.semaphoresPerSet, 1,
                          "every new queue: `VORN: unable to allocate named semaphore`",
                          SemaphoresRaise(look, MoreGet(perSet, 0, IDS_MAX), all, sets));
  limit.isTrouble = look.semaphoresPerSet && perSet < 1;
  limits->push_back(limit);
}

Limit BufferLimit(const std::string& name, const Number& value, const Number& used,
                  const std::string& sysctl) {
  Limit limit =
      LimitMake(name, value, used, "nothing, but an endpoint gets no larger buffer, without a word",
                SysctlText(sysctl, std::to_string(MoreGet(value, used, BUFFER_MAX))));
  limit.isTrouble = value && used && *used > *value;
  return limit;
}

void NetworkAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  limits->push_back(
      BufferLimit("receive-buffer", look.receiveBuffer, look.receiveDefault, "net.core.rmem_max"));
  limits->push_back(
      BufferLimit("send-buffer", look.sendBuffer, look.sendDefault, "net.core.wmem_max"));
  Limit limit =
      LimitMake("memberships", look.memberships, look.interfaces,
                "a group that brings one socket above this, one for each interface: `unable to add "
                "multicast address`",
                SysctlText("net.ipv4.igmp_max_memberships",
                           std::to_string(MoreGet(look.memberships, look.interfaces, BUFFER_MAX))));
  limit.isTrouble = look.memberships && look.interfaces && *look.interfaces > *look.memberships;
  limits->push_back(limit);
}

void ProcessAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  const Number selectable = look.selectable;
  limits->push_back(LimitMake(
      "descriptors", look.descriptors, std::nullopt,
      "a new endpoint; one on descriptor " + std::to_string(selectable.value_or(0)) +
          " (FD_SETSIZE) or above refuses to wait, whatever the limit is: open endpoints first",
      "ulimit -n " + std::to_string(MoreGet(look.descriptors, selectable))));
  Limit limit = LimitMake("real-time-priority", look.priority, std::nullopt,
                          "a thread of a higher real-time priority", "ulimit -r 99");
  if (look.mayPassPriority)
    limit.text = "this process may pass it";
  limits->push_back(limit);
}

Limit NamespaceLimit(const std::string& name, const std::string& ours, const std::string& init,
                     const std::string& refused, const std::string& raise) {
  Limit limit{name,  std::nullopt, std::nullopt, ours.empty() ? "hidden" : ours,
              false, refused,      raise};
  if (init.empty())
    limit.text += ", that of process 1 cannot be seen";
  else
    limit.text += ours == init ? ", that of process 1" : ", not that of process 1";
  return limit;
}

void NamespacesAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  limits->push_back(NamespaceLimit("ipc-namespace", look.ipcNamespace, look.initIpcNamespace,
                                   "queues of programs in another one are not found",
                                   "nsenter --ipc --target PID PROGRAM"));
  limits->push_back(NamespaceLimit("net-namespace", look.netNamespace, look.initNetNamespace,
                                   "interfaces of another one are not seen",
                                   "nsenter --net --target PID PROGRAM"));
}

void SessionManagerAdd(const LimitsLook& look, std::vector<Limit>* limits) {
  Limit limit{"remove-ipc", std::nullopt, std::nullopt, "", false, "", ""};
  if (!look.hasSessionManager)
    limit.text = "no session manager runs";
  else if (!look.removesIpc)
    limit.text = "no";
  else
    limit.text = look.isOrdinaryUser ? "yes, and you are an ordinary user"
                                     : "yes, but not those of root and of system users";
  limit.refused =
      "when an ordinary user's last session ends, the user's queues are removed, in use "
      "or not";
  limit.raise = "loginctl enable-linger USER";
  limits->push_back(limit);
}

}  // namespace

std::vector<Limit> LimitsGet(const LimitsLook& look) {
  std::vector<Limit> limits;
  SegmentsAdd(look, &limits);
  SetsAdd(look, &limits);
  NetworkAdd(look, &limits);
  ProcessAdd(look, &limits);
  NamespacesAdd(look, &limits);
  SessionManagerAdd(look, &limits);
  return limits;
}
