#include "vorndiag/QueueActions.h"

#include "ipc/VORNSemaphores.h"

#include <cerrno>
#include <cstring>

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

// Returns whether it is done.
bool StepAdd(bool done, const char* what, int id, ActionReport* report) {
  report->steps.push_back({what, id, done ? 0 : errno});
  if (!done)
    report->code = EXIT_TROUBLE;
  return done;
}

ActionReport Refused(const std::string& why) { return {why, {}, "", EXIT_TROUBLE}; }

std::string ForeignRefusal(const QueueLook& look, const std::string& refusal) {
  const std::string foreign = ForeignTextGet(look);
  if (foreign.empty())
    return "";
  return refusal + ": " + foreign + "; another program may use it, --force does it all the same";
}

std::string HoldRefusal(MutexHold hold, const SetLook& mutex) {
  if (hold == MutexHold::DEAD)
    return "";
  return "NOT given: " +
         (hold == MutexHold::UNTAKEN ? "no sender took it last, and somebody"
                                     : ProcessText(mutex.process)) +
         " may still be sending, and two senders at once damage the queue; --force gives it all "
         "the same";
}

void SetRemove(const SetLook& set, const char* what, ActionReport* report) {
  if (set.Exists())
    StepAdd(semctl(set.id, 0, IPC_RMID) >= 0, what, set.id, report);
}

// Harmless when the receiver has been woken: it looks at the queue and waits again.
void ReceiverWake(const QueueLook& look, ActionReport* report) {
  const SetLook& semaphore = look.semaphore;
  if (semaphore.Exists() && semaphore.value == 0 && look.segment.messages.count > 0)
    StepAdd(NamedSemaphoreGive(semaphore.id) != 0, "waking the receiver", semaphore.id, report);
}

// Somebody else may have given it since the last look, and a sender that lives may have taken it.
// Only a few instructions lie between this look and the giving.
bool IsStillDead(int id, const SetLook& mutex) {
  const SetLook now = QueueLookGet(id).mutex;
  return now.id == mutex.id && now.process.pid == mutex.process.pid && now.taken == mutex.taken &&
         MutexHoldGet(now, now) == MutexHold::DEAD;
}

}  // namespace

ActionReport MutexGiveBack(const QueueWatch& watch, bool force) {
  const SetLook& mutex = watch.after.mutex;
  if (!mutex.Exists())
    return {"there is no mutex to give", {}, "", EXIT_NOTHING};
  if (mutex.error != 0)
    return Refused(std::string("NOT given: it cannot be looked at: ") + std::strerror(mutex.error));
  std::string refusal = force ? "" : ForeignRefusal(watch.after, "NOT given");
  if (!refusal.empty())
    return Refused(refusal);
  ActionReport report;
  const MutexHold hold = MutexHoldGet(watch.before.mutex, mutex);
  if (hold == MutexHold::FREE || hold == MutexHold::BUSY ||
      (hold == MutexHold::DEAD && !IsStillDead(watch.id, mutex))) {
    report.note = "mutex is not stuck, nothing given";
  } else {
    refusal = force ? "" : HoldRefusal(hold, mutex);
    if (!refusal.empty())
      return Refused(refusal);
    if (!StepAdd(NamedMutexGive(mutex.id) != 0, "giving back the mutex", mutex.id, &report))
      return report;
  }
  ReceiverWake(watch.after, &report);
  return report;
}

// In the library's order. Not through a queue object: that would refuse a damaged queue, and make
// what is missing.
ActionReport QueueRemove(const QueueLook& look, bool force) {
  const std::string refusal = force ? "" : ForeignRefusal(look, "NOT removed");
  if (!refusal.empty())
    return Refused(refusal);
  ActionReport report;
  SetRemove(look.mutex, "removing the mutex", &report);
  SetRemove(look.semaphore, "removing the semaphore", &report);
  if (look.segment.Exists())
    StepAdd(shmctl(look.segment.id, IPC_RMID, nullptr) >= 0, "removing the segment",
            look.segment.id, &report);
  if (report.code == EXIT_FINE && look.segment.kernel.shm_nattch > 0)
    report.note = std::to_string(look.segment.kernel.shm_nattch) +
                  " attached: they find the queue gone when they next send or wait";
  return report;
}

ActionReport QueueHeal(const QueueWatch& watch) {
  if (!ForeignTextGet(watch.after).empty() || watch.after.segment.error != 0)
    return {};
  if (MutexHoldGet(watch.before.mutex, watch.after.mutex) == MutexHold::DEAD) {
    ActionReport report = MutexGiveBack(watch, false);
    report.note.clear();
    return report;
  }
  ActionReport report;
  if (ReceiverSleepsBesideMessages(watch.before) && ReceiverSleepsBesideMessages(watch.after))
    ReceiverWake(watch.after, &report);
  return report;
}
