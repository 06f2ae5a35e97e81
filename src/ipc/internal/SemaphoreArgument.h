#ifndef IPC_INTERNAL_SEMAPHORE_ARGUMENT_H
#define IPC_INTERNAL_SEMAPHORE_ARGUMENT_H

#include <sys/sem.h>

/// The fourth argument of `semctl`, which the host leaves to its callers to declare. Pass the
/// union, not a bare `int`: where an `int` and a union travel in different places, the kernel would
/// read garbage.
union SemaphoreArgument {
  int val;                ///< for SETVAL
  semid_ds* buf;          ///< for IPC_STAT
  unsigned short* array;  ///< for GETALL and SETALL
};

#endif
