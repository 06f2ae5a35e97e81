#include "QueueActions.h"

#include "Process.h"
#include "QueueVerdict.h"
#include "ipc/VORNSemaphores.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/shm.h>

namespace {

bool Report(bool done, const char* what, int id) {
  if (done)
    std::printf("%s (id %d): done\n", what, id);
  else
    std::printf("%s (id %d) FAILED: %s\n", what, id, std::strerror(errno));
  return done;
}

}  // namespace

ExitCode MutexGiveBack(const QueueState& state, bool force) {
  const SetState& mutex = state.mutex;
  if (!mutex.Exists()) {
    std::printf("there is no mutex to give\n");
    return EXIT_NOTHING;
  }
  const MutexHold hold = MutexWatch(mutex);
  const bool isTaken = hold != MutexHold::FREE && hold != MutexHold::BUSY;
  if (isTaken && hold != MutexHold::DEAD && !force) {
    std::printf("NOT given: %s may still be sending, and two senders at once damage the queue; "
                "--force gives it all the same\n",
                ProcessText(mutex.pid, mutex.taken).c_str());
    return EXIT_TROUBLE;
  }
  if (isTaken && !Report(NamedMutexGive(mutex.id) != 0, "giving back the mutex", mutex.id))
    return EXIT_TROUBLE;
  if (!isTaken)
    std::printf("mutex is not stuck, nothing given\n");
  // Harmless when the receiver has been woken: it looks at the queue and waits again.
  if (state.semaphore.Exists() && state.semaphore.value == 0 && state.segment.messages > 0)
    return Report(NamedSemaphoreGive(state.semaphore.id) != 0, "waking the receiver",
                  state.semaphore.id)
               ? EXIT_FINE
               : EXIT_TROUBLE;
  return EXIT_FINE;
}

// In the library's order. Not through a queue object: that would refuse a damaged queue, and make
// what is missing.
ExitCode QueueRemove(const QueueState& state) {
  bool done = true;
  if (state.mutex.Exists())
    done &= Report(NamedMutexDelete(state.mutex.id) != 0, "removing the mutex", state.mutex.id);
  if (state.semaphore.Exists())
    done &= Report(NamedSemaphoreDelete(state.semaphore.id) != 0, "removing the semaphore",
                   state.semaphore.id);
  if (state.segment.Exists())
    done &= Report(shmctl(state.segment.id, IPC_RMID, nullptr) >= 0, "removing the segment",
                   state.segment.id);
  if (done && state.segment.kernel.shm_nattch > 0)
    std::printf("%lu attached: they find the queue gone when they next send or wait\n",
                static_cast<unsigned long>(state.segment.kernel.shm_nattch));
  return done ? EXIT_FINE : EXIT_TROUBLE;
}
