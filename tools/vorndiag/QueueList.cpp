#include "vorndiag/QueueList.h"

#include <map>
#include <sstream>
#include <string>

namespace {

constexpr int OBJECTS_ENOUGH = 2;
constexpr unsigned int QUEUE_MODE = 0664;

bool IsNear(int id) { return id >= NEAR_ID_FIRST && id <= NEAR_ID_LAST; }

bool SetIsLikely(const SetLook& set) {
  return set.Exists() && set.semaphores == 1 && set.mode == QUEUE_MODE;
}

bool SegmentIsLikely(const SegmentLook& segment) {
  return segment.Exists() && segment.error == 0 && segment.fault == SegmentFault::NONE &&
         segment.length + std::size_t{SHM_LENGTH_WORD_SIZE} == segment.kernel.shm_segsz &&
         (segment.kernel.shm_perm.mode & 0777U) == QUEUE_MODE;
}

}  // namespace

std::vector<std::uint32_t> KeysGet(std::istream* list) {
  std::vector<std::uint32_t> keys;
  for (std::string line; std::getline(*list, line);) {
    std::int64_t key = 0;
    if (std::istringstream(line) >> key && key != 0)
      keys.push_back(static_cast<std::uint32_t>(key));
  }
  return keys;
}

std::set<int> CandidatesGet(const std::vector<std::uint32_t>& segmentKeys,
                            const std::vector<std::uint32_t>& setKeys) {
  std::map<int, int> objects;
  for (const std::uint32_t key : segmentKeys)
    if (key == QueueKeyGet(QueueIdOfKey(key)))  // the mutex's key names no segment of a queue
      ++objects[QueueIdOfKey(key)];
  for (const std::uint32_t key : setKeys)
    ++objects[QueueIdOfKey(key)];
  std::set<int> ids;
  for (const auto& [id, count] : objects)
    if (IsNear(id) || count >= OBJECTS_ENOUGH)
      ids.insert(id);
  return ids;
}

bool QueueIsLikely(int id, const QueueLook& look) {
  const int likely = static_cast<int>(SegmentIsLikely(look.segment)) +
                     static_cast<int>(SetIsLikely(look.semaphore)) +
                     static_cast<int>(SetIsLikely(look.mutex));
  return IsNear(id) ? look.AnyExists() : likely >= OBJECTS_ENOUGH;
}
