#include "vorndiag/QueueActions.h"

#include "ipc/VORNSemaphores.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

bool Report(bool done, const char* what, int id) {
  if (done)
    std::printf("%s (id %d): done\n", what, id);
  else
    std::printf("%s (id %d) FAILED: %s\n", what, id, std::strerror(errno));
  return done;
}

bool ForeignRefuse(const QueueLook& look, const char* refusal) {
  const std::string foreign = ForeignTextGet(look);
  if (!foreign.empty())
    std::printf("%s: %s; another program may use it, --force does it all the same\n", refusal,
                foreign.c_str());
  return !foreign.empty();
}

bool HoldRefuse(MutexHold hold, const SetLook& mutex) {
  if (hold == MutexHold::DEAD)
    return false;
  const std::string reason = hold == MutexHold::UNTAKEN ? "no sender took it last, and somebody"
                                                        : ProcessText(mutex.process);
  std::printf("NOT given: %s may still be sending, and two senders at once damage the queue; "
              "--force gives it all the same\n",
              reason.c_str());
  return true;
}

bool SetRemove(const SetLook& set, const char* what) {
  return !set.Exists() || Report(semctl(set.id, 0, IPC_RMID) >= 0, what, set.id);
}

bool SegmentRemove(const SegmentLook& segment) {
  return !segment.Exists() ||
         Report(shmctl(segment.id, IPC_RMID, nullptr) >= 0, "removing the segment", segment.id);
}

// Harmless when the receiver has been woken: it looks at the queue and waits again.
bool ReceiverWake(const QueueLook& look) {
  const SetLook& semaphore = look.semaphore;
  return !semaphore.Exists() || semaphore.value != 0 || look.segment.messages.count == 0 ||
         Report(NamedSemaphoreGive(semaphore.id) != 0, "waking the receiver", semaphore.id);
}

}  // namespace

ExitCode MutexGiveBack(const QueueWatch& watch, bool force) {
  const SetLook& mutex = watch.after.mutex;
  if (!mutex.Exists()) {
    std::printf("there is no mutex to give\n");
    return EXIT_NOTHING;
  }
  if (mutex.error != 0) {
    std::printf("NOT given: it cannot be looked at: %s\n", std::strerror(mutex.error));
    return EXIT_TROUBLE;
  }
  if (!force && ForeignRefuse(watch.after, "NOT given"))
    return EXIT_TROUBLE;
  const MutexHold hold = MutexHoldGet(watch.before.mutex, mutex);
  if (hold == MutexHold::FREE || hold == MutexHold::BUSY)
    std::printf("mutex is not stuck, nothing given\n");
  else if ((!force && HoldRefuse(hold, mutex)) ||
           !Report(NamedMutexGive(mutex.id) != 0, "giving back the mutex", mutex.id))
    return EXIT_TROUBLE;
  return ReceiverWake(watch.after) ? EXIT_FINE : EXIT_TROUBLE;
}

// In the library's order. Not through a queue object: that would refuse a damaged queue, and make
// what is missing.
ExitCode QueueRemove(const QueueLook& look, bool force) {
  if (!force && ForeignRefuse(look, "NOT removed"))
    return EXIT_TROUBLE;
  bool done = SetRemove(look.mutex, "removing the mutex");
  done &= SetRemove(look.semaphore, "removing the semaphore");
  done &= SegmentRemove(look.segment);
  if (done && look.segment.kernel.shm_nattch > 0)
    std::printf("%lu attached: they find the queue gone when they next send or wait\n",
                static_cast<unsigned long>(look.segment.kernel.shm_nattch));
  return done ? EXIT_FINE : EXIT_TROUBLE;
}
