#include "support/ScriptedIpc.h"

#include "ipc/internal/SemaphoreArgument.h"
#include "support/Wrapped.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

std::unique_ptr<ScriptedIpc> script = std::make_unique<ScriptedIpc>();

__attribute__((format(printf, 1, 2))) bool Fails(const char* format, ...) {
  char text[128];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  {
    // Threads of one test may call at the same time, and a script from within.
    static std::recursive_mutex lock;
    const std::lock_guard guard(lock);
    script->calls.emplace_back(text);
    if (!script->fails || !script->fails(text))
      return false;
  }
  errno = script->error;
  return true;
}

std::string CommandText(int command) {
  if (command == SETVAL)
    return "SETVAL";
  return command == IPC_RMID ? "IPC_RMID" : std::to_string(command);
}

}  // namespace

ScriptedIpc& Ipc() { return *script; }

void IpcReset() { script = std::make_unique<ScriptedIpc>(); }

WRAPPED("semget", int, SemaphoresGet, key_t key, int count, int flags) {
  const bool fails = Fails("semget %x %d %o", static_cast<unsigned int>(key), count,
                           static_cast<unsigned int>(flags));
  return fails ? -1 : SemaphoresGetReal(key, count, flags);
}

WRAPPED("semop", int, SemaphoreOperate, int set, sembuf* operations, std::size_t count) {
  const bool fails =
      Fails("semop %d %d %d %o", set, operations->sem_num, operations->sem_op,
            static_cast<unsigned int>(operations->sem_flg) | (count == 1 ? 0U : 01000000U));
  return fails ? -1 : SemaphoreOperateReal(set, operations, count);
}

WRAPPED("semctl", int, SemaphoreControl, int set, int number, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  SemaphoreArgument argument{};
  if (command != IPC_RMID)
    argument = va_arg(arguments, SemaphoreArgument);
  va_end(arguments);
  const std::string value = command == SETVAL ? " " + std::to_string(argument.val) : "";
  const bool fails =
      Fails("semctl %s %d %d%s", CommandText(command).c_str(), set, number, value.c_str());
  return fails ? -1 : SemaphoreControlReal(set, number, command, argument);
}

WRAPPED("shmget", int, SegmentGet, key_t key, std::size_t size, int flags) {
  const bool fails = Fails("shmget %x %zu %o", static_cast<unsigned int>(key), size,
                           static_cast<unsigned int>(flags));
  return fails ? -1 : SegmentGetReal(key, size, flags);
}

WRAPPED("shmat", void*, SegmentAttach, int segment, const void* address, int flags) {
  const bool fails = Fails("shmat %d %d", segment, flags);
  // A segment that cannot exist: only the kernel gives the pointer that means failure.
  void* const base = SegmentAttachReal(fails ? -1 : segment, address, flags);
  script->attached += reinterpret_cast<std::intptr_t>(base) != -1 ? 1 : 0;
  errno = fails ? script->error : errno;
  return base;
}

WRAPPED("shmdt", int, SegmentDetach, const void* address) {
  const int result = Fails("shmdt") ? -1 : SegmentDetachReal(address);
  script->attached -= result == 0 ? 1 : 0;
  return result;
}

WRAPPED("shmctl", int, SegmentControl, int segment, int command, shmid_ds* state) {
  const bool fails = Fails("shmctl %s %d", CommandText(command).c_str(), segment);
  return fails ? -1 : SegmentControlReal(segment, command, state);
}
