#include "platform/KelSemaphore.h"

#include <algorithm>
#include <limits>
#include <new>

#include <ctime>
#include <pthread.h>

// A counting semaphore cannot keep "giving a free one changes nothing" without a race, so this is a
// flag under a mutex, with a condition to wait for it.
struct KELSemaphore {
  pthread_mutex_t guard;
  pthread_cond_t freed;
  bool isFree;
};

namespace {

// The instant at which a wait of `timeout` from now ends, on the condition's clock.
timespec DeadlineGet(const KELNtpTime& timeout) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  if (timeout.sec < 0)
    return deadline;
  const std::int64_t nanoseconds =
      deadline.tv_nsec +
      static_cast<std::int64_t>((std::uint64_t{timeout.frac} * 1000000000U) >> 32);
  // A 32-bit host counts no farther than its `time_t`; a wait as long as that ends there.
  const std::int64_t seconds =
      std::int64_t{deadline.tv_sec} + timeout.sec + nanoseconds / 1000000000;
  deadline.tv_sec = static_cast<time_t>(
      std::min(seconds, static_cast<std::int64_t>(std::numeric_limits<time_t>::max())));
  deadline.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  return deadline;
}

int FreedConditionInitialize(pthread_cond_t* condition) {
  pthread_condattr_t attributes;
  if (pthread_condattr_init(&attributes) != 0)
    return 0;
  const bool made = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) == 0 &&
                    pthread_cond_init(condition, &attributes) == 0;
  pthread_condattr_destroy(&attributes);
  return made ? 1 : 0;
}

}  // namespace

KELSemaphore* KelSemaphoreMutexNew(int /*options*/) {
  auto* semaphore = new (std::nothrow) KELSemaphore;
  if (semaphore == nullptr)
    return nullptr;
  if (pthread_mutex_init(&semaphore->guard, nullptr) != 0) {
    delete semaphore;
    return nullptr;
  }
  if (FreedConditionInitialize(&semaphore->freed) == 0) {
    pthread_mutex_destroy(&semaphore->guard);
    delete semaphore;
    return nullptr;
  }
  semaphore->isFree = true;
  return semaphore;
}

int KelSemaphoreTake(KELSemaphore* semaphore, const KELNtpTime* timeout) {
  if (semaphore == nullptr || pthread_mutex_lock(&semaphore->guard) != 0)
    return 0;
  timespec deadline{};
  if (timeout != nullptr)
    deadline = DeadlineGet(*timeout);
  int failure = 0;
  while (!semaphore->isFree && failure == 0)
    failure = timeout == nullptr
                  ? pthread_cond_wait(&semaphore->freed, &semaphore->guard)
                  : pthread_cond_timedwait(&semaphore->freed, &semaphore->guard, &deadline);
  const bool taken = semaphore->isFree;
  semaphore->isFree = false;
  pthread_mutex_unlock(&semaphore->guard);
  return taken ? 1 : 0;
}

int KelSemaphoreGive(KELSemaphore* semaphore) {
  if (semaphore == nullptr || pthread_mutex_lock(&semaphore->guard) != 0)
    return 0;
  semaphore->isFree = true;
  pthread_cond_signal(&semaphore->freed);
  pthread_mutex_unlock(&semaphore->guard);
  return 1;
}

void KelSemaphoreDelete(KELSemaphore* semaphore) {
  if (semaphore == nullptr)
    return;
  pthread_cond_destroy(&semaphore->freed);
  pthread_mutex_destroy(&semaphore->guard);
  delete semaphore;
}
