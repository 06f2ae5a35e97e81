#ifndef VORNDIAG_QUEUE_FIND_H
#define VORNDIAG_QUEUE_FIND_H

#include "vorndiag/QueueWatch.h"

#include <optional>
#include <vector>

/// Where the kernel lists all segments and all sets of this IPC namespace.
inline constexpr const char* SEGMENT_LIST = "/proc/sysvipc/shm";
inline constexpr const char* SET_LIST = "/proc/sysvipc/sem";

/// A first look at each queue of this IPC namespace, by id; none if the lists cannot be read.
std::optional<std::vector<QueueWatch>> QueuesFind();

#endif
