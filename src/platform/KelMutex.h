#ifndef PLATFORM_KEL_MUTEX_H
#define PLATFORM_KEL_MUTEX_H

#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// A mutex between the threads of one process; not recursive. Owned by whoever made it.
struct KELMutex;

/// Returns a new mutex that nobody holds, or null when the host cannot give one.
VORN_API KELMutex* KelMutexNew();
/// Waits until the caller holds the mutex. Returns 1, or 0 for null.
VORN_API int KelMutexTake(KELMutex* mutex);
/// Lets go of a mutex that the calling thread holds. Returns 1, or 0 for null.
VORN_API int KelMutexGive(KELMutex* mutex);
/// Frees a mutex that nobody holds. Null is ignored.
VORN_API void KelMutexDelete(KELMutex* mutex);

/// A binary semaphore between the threads of one process, made free: whoever takes it first goes
/// on, and any thread may give it back. Owned by whoever made it.
struct KELSemaphore;

/// Returns a new semaphore that is free, or null when the host cannot give one. `options` is
/// reserved; the library passes 0.
VORN_API KELSemaphore* KelSemaphoreMutexNew(int options);
/// Takes the semaphore, waiting at most `timeout` (null: for ever; zero or negative: not at all). A
/// signal does not end the wait. Returns 1 when taken, 0 when the time ran out or for a null
/// semaphore.
VORN_API int KelSemaphoreTake(KELSemaphore* semaphore, const KELNtpTime* timeout);
/// Makes the semaphore free and wakes one waiter; giving a free one changes nothing. Returns 1, or
/// 0 for null.
VORN_API int KelSemaphoreGive(KELSemaphore* semaphore);
/// Frees a semaphore that nobody waits for. Null is ignored.
VORN_API void KelSemaphoreDelete(KELSemaphore* semaphore);

#endif
