#ifndef VORNDIAG_QUEUE_LIST_H
#define VORNDIAG_QUEUE_LIST_H

#include "vorndiag/QueueLook.h"

#include <cstdint>
#include <istream>
#include <set>
#include <vector>

/// Which objects of the host are queues. The kernel lists the keys of all, but any program may use
/// any key. Ids that people choose are small; each key far from the base belongs to some id too,
/// and there most objects are other software's. So:
///
/// - an id from `NEAR_ID_FIRST` to `NEAR_ID_LAST` is a queue's if any of its three objects exists;
/// - a farther id is one if at least two of its objects exist and look like a queue's: a set is of
///   one semaphore, the length word of the segment is exactly what the segment has beyond that
///   word, and owner and group may read and write it, all others only read.
///
/// Pure functions.

inline constexpr int NEAR_ID_FIRST = -32768;
inline constexpr int NEAR_ID_LAST = 32767;

/// The keys in a list as /proc/sysvipc/shm and /proc/sysvipc/sem are: the first number of each
/// line, signed. Lines without one, such as the heading, are passed over, and so is key 0, which is
/// that of objects without a key.
std::vector<std::uint32_t> KeysGet(std::istream* list);

/// The ids that may be queues, given the keys of all segments and of all sets.
std::set<int> CandidatesGet(const std::vector<std::uint32_t>& segmentKeys,
                            const std::vector<std::uint32_t>& setKeys);

/// Whether candidate `id` is a queue's, after a look at it.
bool QueueIsLikely(int id, const QueueLook& look);

#endif
