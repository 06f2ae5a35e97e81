// The library looks at the result of no take: a take that ends without the lock, for a time-out or
// a signal, would let two threads in at once. Three kinds of lock have most clauses in common.

#include "Clause.h"

#include "platform/KelMutex.h"
#include "platform/KelSemaphore.h"
#include "platform/KelThread.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// Handles, which are copied into threads. Nothing is deleted: a thread may wait for it.
struct Mutex {
  KELMutex* handle = KelMutexNew();
  void Take() const { KelMutexTake(handle); }
  void Give() const { KelMutexGive(handle); }
};

struct Semaphore {
  KELSemaphore* handle = KelSemaphoreMutexNew(0);
  void Take() const { KelSemaphoreTake(handle, nullptr); }
  void Give() const { KelSemaphoreGive(handle); }
};

struct ProcessLock {
  void Take() const { KelThreadLock(); }
  void Give() const { KelThreadUnlock(); }
};

template <typename Lock> bool NewOneIsFree() {
  const Lock lock;
  ClauseRequire("the handle", lock.handle != nullptr);
  ClauseRequire("the end of a take", Helper([lock] { lock.Take(); }).HasEnded());
  return true;
}

template <typename Lock> bool NewOnesAreIndependent() {
  const Lock first, second;
  first.Take();
  return Helper([second] { second.Take(); }).HasEnded();
}

template <typename Lock> bool SecondTakerWaits() {
  const Lock lock;
  lock.Take();
  return Helper([lock] { lock.Take(); }).IsWaiting();
}

template <typename Lock> bool SignalDoesNotEndTheWait() {
  const Lock lock;
  lock.Take();
  const Helper second([lock] { lock.Take(); });
  bool isWaiting = second.IsWaiting();
  for (int i = 0; i < 3 && isWaiting; ++i) {
    second.Interrupt();
    isWaiting = second.IsWaiting();
  }
  return isWaiting;
}

template <typename Lock> bool WaitersGoOnOneByOne() {
  static std::atomic<int> inside{0};
  static std::atomic<bool> haveMet{false};
  const Lock lock;
  lock.Take();
  const auto work = [lock] {
    lock.Take();
    haveMet = haveMet || inside.fetch_add(1) != 0;
    MillisecondsSleep(20);
    inside.fetch_sub(1);
    lock.Give();
  };
  const Helper takers[] = {Helper(work), Helper(work), Helper(work)};
  for (const Helper& taker : takers)
    ClauseRequire("the wait", taker.IsWaiting());
  lock.Give();
  for (const Helper& taker : takers)
    ClauseRequire("the end of the wait", taker.HasEnded());
  ClauseRequire("one after the other", !haveMet);
  return true;
}

// Only the lock keeps the threads' additions apart, and hands each of them to the next holder. The
// pause in the middle of some lets another thread in, if anything does.
template <typename Lock> bool HoldersSeeWhatWasWritten() {
  constexpr int THREADS = 4, ADDITIONS = 3000;
  const Lock lock;
  volatile int number = 0;
  ThreadsRun(THREADS, [&](int) {
    for (int i = 0; i < ADDITIONS; ++i) {
      lock.Take();
      const int seen = number;
      if (i % 16 == 0)
        sched_yield();
      number = seen + 1;
      lock.Give();
    }
  });
  return number == THREADS * ADDITIONS;
}

bool MutexDeleteIgnoresNull() {
  KelMutexDelete(nullptr);
  return true;
}

template <typename Lock, void (*lockDelete)(decltype(Lock::handle))> bool DeletedOneIsFreed() {
  return MemoryIsGivenBack([] {
    const Lock lock;
    lock.Take();
    lock.Give();
    lockDelete(lock.handle);
  });
}

bool HolderTakesTheProcessLockAgain() {
  return Helper([] {
           KelThreadLock();
           KelThreadLock();
         })
      .HasEnded();
}

bool ProcessLockIsGivenAsOften() {
  KelThreadLock();
  KelThreadLock();
  KelThreadUnlock();
  const Helper second([] { KelThreadLock(); });
  const bool isWaiting = second.IsWaiting();
  KelThreadUnlock();
  ClauseRequire("after the first give", isWaiting);
  ClauseRequire("after the second give", second.HasEnded());
  return true;
}

bool KernelAllowsPriority(int priority) {
  sched_param parameters{};
  parameters.sched_priority = priority;
  return sched_setscheduler(0, SCHED_FIFO, &parameters) == 0;
}

bool HostHasThePriority() {
  const int beyond = sched_get_priority_max(SCHED_FIFO) + 1;
  ClauseRequire("the greatest and 1", KelThreadPriorityOK(beyond, 3) == 0);
  ClauseRequire("-1", KelThreadPriorityOK(-1, 3) == 0);
  return true;
}

bool PermittedPriorityIsOK() {
  const int priority = sched_get_priority_min(SCHED_FIFO);
  if (!KernelAllowsPriority(priority))
    ClauseSkip("no real-time priority is permitted here");
  return KelThreadPriorityOK(priority, 3) != 0;
}

bool ForbiddenPriorityIsNotOK() {
  constexpr uid_t NOBODY = 65534;
  const rlimit none{0, 0};
  setrlimit(RLIMIT_RTPRIO, &none);
  const bool isNobody = setresuid(NOBODY, NOBODY, NOBODY) == 0 || geteuid() != 0;
  const int priority = sched_get_priority_min(SCHED_FIFO);
  if (!isNobody || KernelAllowsPriority(priority))
    ClauseSkip("the permission cannot be given up here");
  return KelThreadPriorityOK(priority, 3) == 0;
}

}  // namespace

Clauses LockClauses() {
  return {
      {"KelMutexNew", "makes a mutex that nobody holds", NewOneIsFree<Mutex>},
      {"KelMutexNew", "makes mutexes that know nothing of each other",
       NewOnesAreIndependent<Mutex>},
      {"KelMutexTake", "a second taker waits", SecondTakerWaits<Mutex>},
      {"KelMutexTake", "a signal does not end the wait", SignalDoesNotEndTheWait<Mutex>},
      {"KelMutexTake", "a holder sees what the one before it wrote",
       HoldersSeeWhatWasWritten<Mutex>},
      {"KelMutexGive", "lets waiters go on, one after the other", WaitersGoOnOneByOne<Mutex>},
      {"KelMutexDelete", "frees a mutex that nobody holds",
       DeletedOneIsFreed<Mutex, KelMutexDelete>},
      {"KelMutexDelete", "ignores null", MutexDeleteIgnoresNull},
      {"KelSemaphoreMutexNew", "makes a semaphore that is free", NewOneIsFree<Semaphore>},
      {"KelSemaphoreMutexNew", "makes semaphores that know nothing of each other",
       NewOnesAreIndependent<Semaphore>},
      {"KelSemaphoreTake", "a second taker waits, without limit", SecondTakerWaits<Semaphore>},
      {"KelSemaphoreTake", "a signal does not end the wait", SignalDoesNotEndTheWait<Semaphore>},
      {"KelSemaphoreTake", "a holder sees what the one before it wrote",
       HoldersSeeWhatWasWritten<Semaphore>},
      {"KelSemaphoreGive", "lets waiters go on, one after the other",
       WaitersGoOnOneByOne<Semaphore>},
      {"KelSemaphoreDelete", "frees a semaphore that nobody waits for",
       DeletedOneIsFreed<Semaphore, KelSemaphoreDelete>},
      {"KelThreadLock", "another thread waits", SecondTakerWaits<ProcessLock>},
      {"KelThreadLock", "a signal does not end the wait", SignalDoesNotEndTheWait<ProcessLock>},
      {"KelThreadLock", "its holder may take it again", HolderTakesTheProcessLockAgain},
      {"KelThreadLock", "a holder sees what the one before it wrote",
       HoldersSeeWhatWasWritten<ProcessLock>},
      {"KelThreadUnlock", "the lock is free when it was given as often as taken",
       ProcessLockIsGivenAsOften},
      {"KelThreadUnlock", "lets waiters go on, one after the other",
       WaitersGoOnOneByOne<ProcessLock>},
      {"KelThreadPriorityOK", "refuses a priority that the host does not have", HostHasThePriority},
      {"KelThreadPriorityOK", "refuses a priority that this process may not use",
       ForbiddenPriorityIsNotOK},
      {"KelThreadPriorityOK", "accepts a priority that this process may use",
       PermittedPriorityIsOK},
  };
}
