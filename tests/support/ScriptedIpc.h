#ifndef SUPPORT_SCRIPTED_IPC_H
#define SUPPORT_SCRIPTED_IPC_H

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

/// The System V calls of the library, written down and, where a test says so, refused; the others
/// reach the kernel. The linker sends the calls here (--wrap).
struct ScriptedIpc {
  /// In order, keys hexadecimal and flags octal: "semget abbd0000 1 3664", "semop 3 0 -1 0",
  /// "semctl SETVAL 3 0 1", "semctl IPC_RMID 3 0", "shmget abbd0000 29 3664", "shmat 3 0",
  /// "shmdt", "shmctl IPC_RMID 3".
  std::vector<std::string> calls;
  /// Asked before each call: true refuses it.
  std::function<bool(const std::string& call)> fails;
  int error = ENOSPC;            ///< what a refused call tells
  std::atomic<int> attached{0};  ///< segments that are attached
};

ScriptedIpc& Ipc();
void IpcReset();

#endif
