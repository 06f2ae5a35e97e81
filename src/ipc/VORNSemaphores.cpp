#include "ipc/VORNSemaphores.h"

#include "ipc/internal/SemaphoreArgument.h"
#include "utils/internal/Diagnostics.h"

#include <cerrno>
#include <cstdio>

#include <sys/ipc.h>
#include <sys/sem.h>

namespace {

constexpr int NO_HANDLE = 0;
constexpr int CREATION_FLAGS = IPC_CREAT | IPC_EXCL | 0664;

int SetOpen(int key) { return semget(key, 1, 0); }

int SetCreate(int key) { return semget(key, 1, CREATION_FLAGS); }

bool SetRemove(int set) { return semctl(set, 0, IPC_RMID) >= 0; }

bool ValueSet(int set, int value) {
  SemaphoreArgument argument{};
  argument.val = value;
  return semctl(set, 0, SETVAL, argument) >= 0;
}

int Refuse(int error) {
  errno = error;
  return 0;
}

int AllocationRefuse(const char* what) {
  const int error = errno;
  DiagnosticPrint(Diagnostic::FAILURE, WarnMutexNULLAlloc, what);
  return Refuse(error);
}

// An interrupted take is not tried again: a signal is the only thing that ends the wait for a
// holder that died, without touching the set. The caller, who knows why it was interrupted,
// decides.
int Take(int handle) {
  if (handle <= NO_HANDLE)
    return Refuse(EINVAL);
  sembuf operation{};
  operation.sem_num = 0;
  operation.sem_op = -1;
  operation.sem_flg = 0;
  return semop(handle, &operation, 1) == 0 ? 1 : 0;
}

// Sets the value instead of adding to it: gives do not pile up, and one to a free semaphore is
// harmless.
int Give(int handle) {
  if (handle <= NO_HANDLE)
    return Refuse(EINVAL);
  return ValueSet(handle, 1) ? 1 : 0;
}

}  // namespace

int SemaphoreMutexNew(int key, int initialValue) {
  if (key == IPC_PRIVATE) {
    // The kernel would make a new set on every call, which no other process could ever find.
    errno = EINVAL;
    return AllocationRefuse("named semaphore");
  }
  const int existing = SetOpen(key);
  if (existing >= 0)
    return existing;
  int set = SetCreate(key);
  if (set < 0)
    return AllocationRefuse("named semaphore");
  // What a fresh IPC namespace gives first. Once it is removed, the kernel goes on to another
  // number.
  if (set == NO_HANDLE) {
    if (!SetRemove(set))
      static_cast<void>(std::puts("Unable to delete semaphore"));
    set = SetCreate(key);
  }
  const int creationError = errno;
  if (ValueSet(set, initialValue))
    return set;
  if (set < 0)
    errno = creationError;
  return AllocationRefuse("semaphore inti");
}

int SemaphoreMutexDelete(int handle) {
  if (handle <= NO_HANDLE || SetRemove(handle))
    return 1;
  const int error = errno;
  DiagnosticPrint(Diagnostic::NOTE, "VORN: Failed to close named semaphore.\n");
  return Refuse(error);
}

int NamedSemaphoreNew(int key, int initialValue) {
  const int handle = SemaphoreMutexNew(key, initialValue);
  return handle != NO_HANDLE ? handle : AllocationRefuse("named semaphore");
}

int NamedSemaphoreTake(int handle) { return Take(handle); }

int NamedSemaphoreGive(int handle) { return Give(handle); }

int NamedSemaphoreDelete(int handle) { return SemaphoreMutexDelete(handle); }

int NamedMutexNew(int key) { return SemaphoreMutexNew(key, 1); }

int NamedMutexTake(int handle) { return Take(handle); }

int NamedMutexGive(int handle) { return Give(handle); }

int NamedMutexDelete(int handle) { return SemaphoreMutexDelete(handle); }
