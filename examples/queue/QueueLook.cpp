#include "QueueLook.h"

#include "ipc/QueueKeys.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

constexpr int READ_AND_WRITE = 0600;  // whoever may use the object as owner, group or other

key_t KeyOf(std::uint32_t key) { return static_cast<key_t>(key); }

// The kernel checks the permission when an object is looked up with the rights that are wanted.
bool IsAllowed(int id) {
  const auto refuses = [](int found) { return found < 0 && errno == EACCES; };
  return !refuses(shmget(KeyOf(QueueKeyGet(id)), 0, READ_AND_WRITE)) &&
         !refuses(semget(KeyOf(QueueKeyGet(id)), 0, READ_AND_WRITE)) &&
         !refuses(semget(KeyOf(QueueMutexKeyGet(id)), 0, READ_AND_WRITE));
}

// docs/queue-layout.md: the first word is the length of what follows it, an 8-byte header and a
// ring.
bool IsQueue(int segment, std::size_t size) {
  constexpr std::uint32_t HEADER_SIZE = 8;
  std::uint32_t length = 0;
  void* memory = size >= sizeof length ? shmat(segment, nullptr, SHM_RDONLY) : nullptr;
  if (memory == nullptr || reinterpret_cast<std::intptr_t>(memory) == -1)
    return false;
  std::memcpy(&length, memory, sizeof length);
  shmdt(memory);
  return length > HEADER_SIZE && length - HEADER_SIZE <= INT_MAX && length <= size - sizeof length;
}

int SemaphoreFactGet(std::uint32_t key, int command) {
  const int set = semget(KeyOf(key), 0, 0);
  return set >= 0 ? semctl(set, 0, command) : -1;
}

// Only "no such process" means gone: without permission for a signal there is a process.
Finding MakerJudge(pid_t maker) {
  if (maker == 0)
    return Finding::MAKER_UNSEEN;
  return kill(maker, 0) == 0 || errno != ESRCH ? Finding::MAKER_LIVES : Finding::LEFT_BEHIND;
}

Finding SegmentJudge(int id, int segment, const shmid_ds& state) {
  if (!IsQueue(segment, state.shm_segsz))
    return Finding::FOREIGN_SEGMENT;
  const Finding maker = MakerJudge(state.shm_cpid);
  if (maker == Finding::LEFT_BEHIND && SemaphoreFactGet(QueueKeyGet(id), GETNCNT) > 0)
    return Finding::RECEIVER_WAITS;
  return maker;
}

}  // namespace

QueueLook QueueLookAt(int id) {
  if (!IsAllowed(id))
    return {Finding::NOT_ALLOWED};
  const int segment = shmget(KeyOf(QueueKeyGet(id)), 0, 0);
  shmid_ds state{};
  if (segment < 0 || shmctl(segment, IPC_STAT, &state) != 0)
    return {MutexIsStuck(id) ? Finding::LEFT_MUTEX : Finding::NONE};
  return {SegmentJudge(id, segment, state), state.shm_cpid};
}

bool MutexIsStuck(int id) {
  for (int look = 0; look < 10; ++look) {
    if (SemaphoreFactGet(QueueMutexKeyGet(id), GETVAL) != 0)
      return false;
    const timespec pause{0, 10000000};
    nanosleep(&pause, nullptr);
  }
  return true;
}
