#include "vorndiag/QueueLook.h"

#include "ipc/internal/SemaphoreArgument.h"

#include <atomic>
#include <cerrno>

#include <sys/sem.h>

namespace {

constexpr int TRIES = 3;

// Removed between two calls: that is no error, there is none any more.
bool IsRemoved(int error) { return error == EINVAL || error == EIDRM; }

// At the object that the kernel has under `key`; a negative `id` is none.
template <class Look> Look LookBegin(std::uint32_t key, int id) {
  Look look;
  look.key = key;
  look.id = id;
  return look;
}

template <class Look> Look FailedLook(Look look) {
  look.error = errno;
  if (IsRemoved(look.error)) {
    look.id = -1;
    look.error = 0;
  }
  return look;
}

// All but what has become of the process.
SetLook SetLookOnce(std::uint32_t key) {
  auto look = LookBegin<SetLook>(key, semget(static_cast<key_t>(key), 0, 0));
  if (!look.Exists())
    return look;
  semid_ds kernel{};
  SemaphoreArgument argument{};
  argument.buf = &kernel;
  look.value = semctl(look.id, 0, GETVAL);
  look.waiting = semctl(look.id, 0, GETNCNT);
  look.process.pid = semctl(look.id, 0, GETPID);
  if (look.value < 0 || look.waiting < 0 || look.process.pid < 0 ||
      semctl(look.id, 0, IPC_STAT, argument) < 0)
    return FailedLook(look);
  look.semaphores = static_cast<int>(kernel.sem_nsems);
  look.mode = kernel.sem_perm.mode & 0777U;
  look.taken = kernel.sem_otime;
  look.set = kernel.sem_ctime;
  return look;
}

bool IsUnchanged(const SetLook& a, const SetLook& b) {
  return a.id == b.id && a.value == b.value && a.process.pid == b.process.pid &&
         a.taken == b.taken && a.set == b.set;
}

// A process that has ended may have given the mutex back first. So the set is read again after the
// process was looked at: only if nothing changed do the two belong together.
SetLook SetLookGet(std::uint32_t key) {
  SetLook look = SetLookOnce(key);
  for (int i = 0; i < TRIES && look.Exists() && look.error == 0; ++i) {
    look.process = ProcessLook(look.process.pid, look.LastTime());
    SetLook again = SetLookOnce(key);
    if (IsUnchanged(look, again))
      return look;
    look = again;
  }
  return look;
}

// The write offset is loaded after the read offset: an older one, which the receiver has passed
// since, would make a full ring of an empty one.
std::optional<RingOffsets> OffsetsLoad(const ShmMsgQHeader* header, int capacity) {
  const std::optional<RingOffsets> older = RingOffsetsLoad(header, capacity);
  const std::optional<RingOffsets> newer = RingOffsetsLoad(header, capacity);
  if (!older || !newer)
    return std::nullopt;
  return RingOffsets{newer->write, older->read};
}

void MessagesLook(ShmMsgQHeader* header, SegmentLook* look) {
  for (int i = 0; i < TRIES; ++i) {
    look->messages = {};
    look->offsets = OffsetsLoad(header, look->capacity);
    if (!look->offsets)
      return;
    look->messages = RingMessagesWalk(RingGet(header), look->capacity, *look->offsets);
    const std::optional<RingOffsets> now = RingOffsetsLoad(header, look->capacity);
    if (now && now->read == look->offsets->read)
      return;
  }
  look->isMoving = true;
  look->messages = {};
}

void WrittenLook(ShmMsgQHeader* header, int earlierWrite, SegmentLook* look) {
  if (look->offsets && earlierWrite >= 0 && earlierWrite < look->capacity)
    look->written =
        RingMessagesWalk(RingGet(header), look->capacity, {look->offsets->write, earlierWrite});
}

void RingLook(char* base, std::optional<int> earlierWrite, SegmentLook* look) {
  const std::size_t size = look->kernel.shm_segsz;
  // The kernel maps whole pages: the word can be read in the smallest segment.
  look->length = std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(base))
                     .load(std::memory_order_acquire);
  look->fault = SegmentCheck(size, look->length);
  if (look->fault != SegmentFault::NONE)
    return;
  look->capacity = static_cast<int>(look->length - QUEUE_HEADER_SIZE);
  auto* header = reinterpret_cast<ShmMsgQHeader*>(base + SHM_LENGTH_WORD_SIZE);
  MessagesLook(header, look);
  if (earlierWrite)
    WrittenLook(header, *earlierWrite, look);
}

SegmentLook SegmentLookGet(std::uint32_t key, std::optional<int> earlierWrite) {
  auto look = LookBegin<SegmentLook>(key, shmget(static_cast<key_t>(key), 0, 0));
  if (!look.Exists())
    return look;
  if (shmctl(look.id, IPC_STAT, &look.kernel) < 0)
    return FailedLook(look);
  look.maker = ProcessLook(look.kernel.shm_cpid, look.kernel.shm_ctime);
  void* base = shmat(look.id, nullptr, SHM_RDONLY);
  if (reinterpret_cast<std::intptr_t>(base) == -1)
    return FailedLook(look);
  RingLook(static_cast<char*>(base), earlierWrite, &look);
  shmdt(base);
  return look;
}

}  // namespace

QueueLook QueueLookGet(int id, std::optional<int> earlierWrite) {
  return {SegmentLookGet(QueueKeyGet(id), earlierWrite), SetLookGet(QueueKeyGet(id)),
          SetLookGet(QueueMutexKeyGet(id))};
}
