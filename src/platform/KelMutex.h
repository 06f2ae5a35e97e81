#ifndef PLATFORM_KEL_MUTEX_H
#define PLATFORM_KEL_MUTEX_H

#include "platform/VornExport.h"

/// A mutex between the threads of one process; not recursive. Whoever made it owns it.
struct KELMutex;

/// Returns a new mutex that nobody holds, or null if the host cannot give one.
VORN_API KELMutex* KelMutexNew();
/// Waits until the caller holds the mutex. Returns 1, or 0 for null.
VORN_API int KelMutexTake(KELMutex* mutex);
/// Releases a mutex that the calling thread holds. Returns 1, or 0 for null.
VORN_API int KelMutexGive(KELMutex* mutex);
/// Frees a mutex that nobody holds. Null is ignored.
VORN_API void KelMutexDelete(KELMutex* mutex);

#endif
