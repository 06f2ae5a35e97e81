#ifndef PLATFORM_KEL_THREAD_H
#define PLATFORM_KEL_THREAD_H

#include "platform/VornExport.h"

/// Takes the process lock: one lock for the whole process, under which the middleware sets up and
/// tears down what all its parts share. A thread that holds it may take it again and then gives it
/// back as often. Both return 1, or 0 when the host refuses (giving a lock not held).
VORN_API int KelThreadLock();
VORN_API int KelThreadUnlock();

/// Asks whether a thread may run at a real-time `priority`. `checks` says what must hold: bit 0,
/// the host has that priority; bit 1, this process is permitted to use it. The library asks for
/// both (3). Returns non-zero when every asked condition holds, else 0.
VORN_API int KelThreadPriorityOK(int priority, int checks);

#endif
