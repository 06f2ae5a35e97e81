#include "Refusal.h"

#include "ipc/QueueKeys.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

// The words in braces are filled in; {hex} is {key} without 0x.
const struct {
  Finding finding;
  const char* text;
} TEXTS[] = {
    {Finding::LEFT_MUTEX,
     "logger: the mutex of an earlier queue {queue} is left, taken: a new queue would wait for it\n"
     "logger: look with `vorndiag queue {queue}`, remove it with `--remove` there\n"},
    {Finding::NOT_ALLOWED, "logger: queue {queue}, or a part of it, belongs to another user, and "
                           "this one may not use it\n"
                           "logger: look with `ipcs -s -m` for {key} and {mutexkey}; run as the "
                           "owner, or take another id "
                           "with --queue\n"},
    {Finding::FOREIGN_SEGMENT,
     "logger: the segment under the key of queue {queue} is not a queue\n"
     "logger: look with `ipcs -m` for {key} whose it is, or take another id with --queue\n"},
    {Finding::MAKER_LIVES,
     "logger: queue {queue} was made by process {maker}, which lives: end that one first\n"
     "logger: where `ps -p {maker}` shows a program that uses no queue, the maker is gone and "
     "its number was given again: `vorndiag queue {queue} --remove`\n"},
    {Finding::MAKER_UNSEEN,
     "logger: queue {queue} was made by a process that cannot be seen from here\n"
     "logger: start in the PID namespace of its maker, or, when that is gone, `vorndiag queue "
     "{queue} --remove`\n"},
    {Finding::RECEIVER_WAITS,
     "logger: the maker of queue {queue} is gone, but another process receives from it\n"
     "logger: `grep -l SYSV{hex} /proc/[0-9]*/maps` shows who uses it; end the receiver first\n"},
    {Finding::LEFT_BEHIND,
     "logger: queue {queue} is left from a process that is gone\n"
     "logger: go on with it by --take-over, or remove it and what waits in it with `vorndiag queue "
     "{queue} --remove`\n"},
};

std::string HexText(std::uint32_t key) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned int>(key));
  return text;
}

void WordReplace(std::string* text, const std::string& word, const std::string& value) {
  for (auto at = text->find(word); at != std::string::npos; at = text->find(word, at))
    text->replace(at, word.size(), value);
}

struct Limit {
  const char* what;
  const char* name;      // for sysctl
  unsigned long needed;  // with the new queue
  unsigned long allowed;
};

unsigned long SetsMissingGet(int id) {
  unsigned long missing = 0;
  for (const std::uint32_t key : {QueueKeyGet(id), QueueMutexKeyGet(id)})
    missing += semget(static_cast<key_t>(key), 0, 0) < 0 ? 1U : 0U;
  return missing;
}

std::array<Limit, 4> LimitsGet(int id, unsigned int size) {
  constexpr unsigned int OVERHEAD = 13;  // length word, header, and the byte that stays free
  shminfo allowed{};
  shm_info used{};
  seminfo setsAllowed{};
  seminfo setsUsed{};
  shmctl(0, IPC_INFO, reinterpret_cast<shmid_ds*>(&allowed));
  shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&used));
  semctl(0, 0, IPC_INFO, &setsAllowed);
  semctl(0, 0, SEM_INFO, &setsUsed);
  const unsigned long bytes = size + OVERHEAD;
  const auto page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  const auto sets = static_cast<unsigned long>(setsUsed.semusz) + SetsMissingGet(id);
  return {
      {{"bytes in one segment", "kernel.shmmax", bytes, allowed.shmmax},
       {"segments", "kernel.shmmni", static_cast<unsigned long>(used.used_ids) + 1, allowed.shmmni},
       {"pages of all segments", "kernel.shmall", used.shm_tot + (bytes + page - 1) / page,
        allowed.shmall},
       {"sets of semaphores", "kernel.sem", sets, static_cast<unsigned long>(setsAllowed.semmni)}}};
}

}  // namespace

void FindingPrint(int id, const QueueLook& look) {
  for (const auto& row : TEXTS) {
    if (row.finding != look.finding)
      continue;
    std::string text = row.text;
    WordReplace(&text, "{queue}", std::to_string(id));
    WordReplace(&text, "{maker}", std::to_string(look.maker));
    WordReplace(&text, "{hex}", HexText(QueueKeyGet(id)));
    WordReplace(&text, "{key}", "0x" + HexText(QueueKeyGet(id)));
    WordReplace(&text, "{mutexkey}", "0x" + HexText(QueueMutexKeyGet(id)));
    std::fputs(text.c_str(), stderr);
  }
}

void LimitPrint(int id, unsigned int size) {
  for (const Limit& limit : LimitsGet(id, size)) {
    if (limit.needed <= limit.allowed)
      continue;
    std::fprintf(stderr,
                 "logger: with queue %d there would be %lu %s; the host allows %lu\n"
                 "logger: raise that with `sysctl %s`, remove what nobody uses (`ipcs -s -m`), or "
                 "take a smaller --size\n",
                 id, limit.needed, limit.what, limit.allowed, limit.name);
    return;
  }
  std::fprintf(stderr,
               "logger: the host refuses a queue %d of %u bytes, and no limit of it says why\n"
               "logger: look with `free` whether there is memory, or take a smaller --size\n",
               id, size);
}

void SeatPrint(int id, int error) {
  if (error == EADDRINUSE)
    std::fprintf(stderr,
                 "logger: another logger serves queue %d\n"
                 "logger: look with `pgrep -a logger` and end it first, or take another id with "
                 "--queue\n",
                 id);
  else
    std::fprintf(stderr,
                 "logger: cannot tell whether another logger serves queue %d: %s\n"
                 "logger: it needs /proc and a local socket: look with `ls -l /proc/self/ns/ipc`\n",
                 id, std::strerror(error));
}
