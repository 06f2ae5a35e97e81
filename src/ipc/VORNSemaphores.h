#ifndef IPC_VORN_SEMAPHORES_H
#define IPC_VORN_SEMAPHORES_H

#include "platform/VornExport.h"

/// @file
/// Semaphores and mutexes between the processes of one host, found by a number that they agree on.
/// Each is a System V set of one semaphore that owner and group may use and others only look at
/// (0664).
///
/// The value has two states: a take waits for 1 and makes it 0; a give makes it 1, however often it
/// is called. Nothing is undone when a process ends: a holder that dies leaves the value at 0 until
/// somebody gives. A set stays on the host until it is deleted.
///
/// A handle is the kernel's identifier of the set, the same in every process. 0 is no handle: a set
/// that the kernel numbers 0 is given up for another one. Handles of 0 or below are refused without
/// a look at what the kernel may have under that number. The library keeps no state and takes no
/// lock: any thread may call any of these. Failures leave the system's reason in `errno`.

/// Opens the set of `key` (System V key; 0 names no set and is refused) or, when there is none,
/// makes one with the value `initialValue` (0 to 32767). The value of a set that exists is left as
/// it is. Returns the handle; or 0 with a line at level >= 0 when it can be neither opened nor
/// made, which includes losing a race against another process that makes it; or 0 without a line
/// when the set that exists is the kernel's number 0. A set that was made but could not be given
/// its value stays.
VORN_API int SemaphoreMutexNew(int key, int initialValue);

/// Removes the set; whoever waits for it fails. Returns 1, also for a handle of 0 or below, which
/// touches nothing; or 0 with a line at level > 0 when there is no such set or no permission.
VORN_API int SemaphoreMutexDelete(int handle);

/// `SemaphoreMutexNew`, with one more line at level >= 0 when that returns 0.
VORN_API int NamedSemaphoreNew(int key, int initialValue);
/// Waits until the value is 1 and makes it 0, with one system call. Returns 1; or 0 when the wait
/// was ended by a signal (nothing is tried again), there is no such set any more, or no permission.
VORN_API int NamedSemaphoreTake(int handle);
/// Makes the value 1, with one system call. Returns 1, or 0 without such a set or permission.
VORN_API int NamedSemaphoreGive(int handle);
/// `SemaphoreMutexDelete`.
VORN_API int NamedSemaphoreDelete(int handle);

/// `SemaphoreMutexNew` with the value 1, which makes a mutex. Any process or thread may give a
/// mutex: that is how the mutex of a dead holder is brought back; see docs/operations.md.
VORN_API int NamedMutexNew(int key);
/// `NamedSemaphoreTake`: the caller holds the mutex after a 1.
VORN_API int NamedMutexTake(int handle);
/// `NamedSemaphoreGive`.
VORN_API int NamedMutexGive(int handle);
/// `SemaphoreMutexDelete`.
VORN_API int NamedMutexDelete(int handle);

#endif
