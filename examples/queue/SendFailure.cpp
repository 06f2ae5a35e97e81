#include "SendFailure.h"

#include "ipc/QueueKeys.h"
#include "ipc/VORNShmMsgQ.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

constexpr int USABLE = 0600;
constexpr std::int64_t MESSAGE_LENGTH_SIZE = 4;  // goes before each message

SendFailure ErrorMeaning(int error) {
  if (error == ENOENT || error == EIDRM)
    return SendFailure::GONE;
  return error == EACCES ? SendFailure::NOT_ALLOWED : SendFailure::PASSED;
}

// Whether the three parts of the queue are there and this user may use them. A segment without its
// sets is a queue that is being removed.
SendFailure PartsLook(int id) {
  const auto key = static_cast<key_t>(QueueKeyGet(id));
  const auto mutexKey = static_cast<key_t>(QueueMutexKeyGet(id));
  if (shmget(key, 0, USABLE) < 0 || semget(mutexKey, 0, USABLE) < 0 || semget(key, 0, USABLE) < 0)
    return ErrorMeaning(errno);
  return SendFailure::PASSED;
}

// Another process may be writing: each word is loaded once.
std::int32_t WordLoad(const std::int32_t* word) { return __atomic_load_n(word, __ATOMIC_RELAXED); }

// Both offsets of a sound header lie in the ring, which has room for a message or has not.
SendFailure RingLook(ShMHandle* segment, std::int64_t needed) {
  constexpr std::size_t OVERHEAD = SHM_LENGTH_WORD_SIZE + sizeof(ShmMsgQHeader);
  const std::size_t length = ShMLengthGet(segment);
  if (segment->size <= OVERHEAD || length <= sizeof(ShmMsgQHeader) ||
      length > segment->size - SHM_LENGTH_WORD_SIZE)
    return SendFailure::DAMAGED;
  const auto* header = static_cast<const ShmMsgQHeader*>(ShMAddressGet(segment));
  const std::int64_t write = WordLoad(&header->writeOffset), read = WordLoad(&header->readOffset);
  const auto capacity = static_cast<std::int64_t>(length - sizeof *header);
  if (write < 0 || write >= capacity || read < 0 || read >= capacity)
    return SendFailure::DAMAGED;
  const std::int64_t most = capacity - 1;  // one byte always stays free
  if (needed > most)
    return SendFailure::TOO_LONG;
  return needed > most - (write - read + capacity) % capacity ? SendFailure::FULL
                                                              : SendFailure::PASSED;
}

}  // namespace

SendFailure SendFailureGet(int id, const char* data, int length) {
  if (data == nullptr || length < 0)
    return SendFailure::WRONG_MESSAGE;
  const SendFailure parts = PartsLook(id);
  if (parts != SendFailure::PASSED)
    return parts;
  ShMHandle* segment = ShMOpen(static_cast<int>(QueueKeyGet(id)));
  if (segment == nullptr)
    return ErrorMeaning(errno);
  const SendFailure ring = RingLook(segment, length + MESSAGE_LENGTH_SIZE);
  ShMDelete(segment, 0);
  return ring;
}
