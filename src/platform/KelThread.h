#ifndef PLATFORM_KEL_THREAD_H
#define PLATFORM_KEL_THREAD_H

#include "platform/VornExport.h"

/// Takes the process lock: one lock for the whole process, under which the middleware sets up and
/// tears down what all its parts share. A thread that holds it may take it again, and then gives it
/// as many times. Returns 1, or 0 if the host refuses.
VORN_API int KelThreadLock();
/// Gives the process lock. Returns 1, or 0 if the host refuses, as it does for a thread that does
/// not hold the lock.
VORN_API int KelThreadUnlock();

/// Asks whether a thread may run at a real-time `priority`. `checks` says what must be true. Bit 0:
/// the host has that priority. Bit 1: this process is permitted to use it. The library asks for
/// both (3). Returns non-zero if everything asked for is true, else 0.
VORN_API int KelThreadPriorityOK(int priority, int checks);

#endif
