#ifndef PLATFORM_KEL_SEMAPHORE_H
#define PLATFORM_KEL_SEMAPHORE_H

#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// A binary semaphore between the threads of one process. It is made free. One thread at a time
/// takes it, and any thread may give it back. Whoever made it owns it.
struct KELSemaphore;

/// Returns a new semaphore that is free, or null if the host cannot give one. `options` is
/// reserved; the library passes 0.
VORN_API KELSemaphore* KelSemaphoreMutexNew(int options);
/// Takes the semaphore. Waits for at most `timeout`; for ever if it is null, not at all if it is
/// zero or negative. A signal does not end the wait. Returns 1 if the semaphore is taken; 0 if the
/// time is over, and for a null semaphore.
VORN_API int KelSemaphoreTake(KELSemaphore* semaphore, const KELNtpTime* timeout);
/// Makes the semaphore free and wakes one waiter. To give a free one changes nothing. Returns 1, or
/// 0 for null.
VORN_API int KelSemaphoreGive(KELSemaphore* semaphore);
/// Frees a semaphore that nobody waits for. Null is ignored.
VORN_API void KelSemaphoreDelete(KELSemaphore* semaphore);

#endif
