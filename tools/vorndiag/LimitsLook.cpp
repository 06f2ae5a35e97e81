#include "vorndiag/Limits.h"

#include "net/VORNDGram.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <system_error>

#include <sys/resource.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Number = LimitsLook::Number;

constexpr uid_t ORDINARY_USER_FIRST = 1000;
constexpr uid_t ORDINARY_USER_LAST = 60000;
constexpr int CAPABILITY_NICE = 23;

Number NumberOf(unsigned long long value) {
  return static_cast<std::int64_t>(
      std::min(value, static_cast<unsigned long long>(LimitsLook::UNLIMITED)));
}

Number FileNumberGet(const std::string& path) {
  std::ifstream file(path);
  unsigned long long value = 0;
  return file >> value ? NumberOf(value) : std::nullopt;
}

void SegmentsLook(LimitsLook* look) {
  look->segments = FileNumberGet("/proc/sys/kernel/shmmni");
  look->segmentBytes = FileNumberGet("/proc/sys/kernel/shmmax");
  look->pages = FileNumberGet("/proc/sys/kernel/shmall");
  look->pageSize = sysconf(_SC_PAGESIZE);
  shm_info used{};
  if (shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&used)) >= 0) {
    look->segmentsUsed = used.used_ids;
    look->pagesUsed = static_cast<std::int64_t>(used.shm_tot);
  }
  std::ifstream list("/proc/sysvipc/shm");
  std::int64_t largest = 0;
  for (std::string line; std::getline(list, line);) {
    std::string skipped;
    std::int64_t size = 0;
    if (std::istringstream(line) >> skipped >> skipped >> skipped >> size)
      largest = std::max(largest, size);
  }
  if (list.eof())
    look->largestSegment = largest;
}

// The older form of the answer, an int each, would cut off what a 64-bit host allows.
void SetsLook(LimitsLook* look) {
  std::ifstream file("/proc/sys/kernel/sem");
  std::int64_t perSet = 0;
  std::int64_t all = 0;
  std::int64_t perCall = 0;
  std::int64_t sets = 0;
  if (file >> perSet >> all >> perCall >> sets) {
    look->semaphoresPerSet = perSet;
    look->semaphores = all;
    look->semaphoresPerCall = perCall;
    look->sets = sets;
  }
  seminfo used{};
  if (semctl(0, 0, SEM_INFO, &used) >= 0) {
    look->setsUsed = used.semusz;
    look->semaphoresUsed = used.semaem;
  }
}

// The kernel gives as much as the maximum and doubles it, for its own use. So the answer is right
// also in a namespace in which /proc does not show the maximum.
Number BufferLimitGet(int descriptor, int option) {
  const int wanted = INT_MAX / 2;
  int given = 0;
  socklen_t size = sizeof given;
  if (setsockopt(descriptor, SOL_SOCKET, option, &wanted, sizeof wanted) != 0 ||
      getsockopt(descriptor, SOL_SOCKET, option, &given, &size) != 0)
    return std::nullopt;
  return given / 2;
}

void NetworkLook(LimitsLook* look) {
  VORNDGramProperties defaults{};
  VornDGramPropertiesDefaultGet(&defaults);
  look->receiveDefault = defaults.recvBufferSize;
  look->sendDefault = defaults.sendBufferSize;
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor >= 0) {
    look->receiveBuffer = BufferLimitGet(descriptor, SO_RCVBUF);
    look->sendBuffer = BufferLimitGet(descriptor, SO_SNDBUF);
    close(descriptor);
  }
  look->memberships = FileNumberGet("/proc/sys/net/ipv4/igmp_max_memberships");
  if (VORNDGramClass::NICInitialize() == 0)
    return;
  look->interfaces = std::count_if(VORN_NIC, VORN_NIC + VORN_NIC_COUNT, VornNicIsMulticastCapable);
  VORNDGramClass::NICDestroy();
}

bool HasCapability(int capability) {
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name;
    std::uint64_t mask = 0;
    if (words >> name && name == "CapEff:" && words >> std::hex >> mask)
      return ((mask >> capability) & 1U) != 0;
  }
  return false;
}

Number ResourceLimitGet(decltype(RLIMIT_NOFILE) resource) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0)
    return std::nullopt;
  return limit.rlim_cur == RLIM_INFINITY ? LimitsLook::UNLIMITED : NumberOf(limit.rlim_cur);
}

void ProcessLimitsLook(LimitsLook* look) {
  look->descriptors = ResourceLimitGet(RLIMIT_NOFILE);
  look->selectable = FD_SETSIZE;
  look->priority = ResourceLimitGet(RLIMIT_RTPRIO);
  look->mayPassPriority = HasCapability(CAPABILITY_NICE);
}

std::string NamespaceGet(const char* process, const char* kind) {
  std::error_code error;
  return fs::read_symlink(std::string("/proc/") + process + "/ns/" + kind, error).string();
}

void NamespacesLook(LimitsLook* look) {
  look->ipcNamespace = NamespaceGet("self", "ipc");
  look->initIpcNamespace = NamespaceGet("1", "ipc");
  look->netNamespace = NamespaceGet("thread-self", "net");
  look->initNetNamespace = NamespaceGet("1", "net");
}

std::string FileTextGet(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The main file first, then the small ones by name; one in /etc hides one of that name in /usr.
std::vector<std::string> SessionManagerTexts(const std::string& root) {
  std::map<std::string, fs::path> parts;
  std::vector<std::string> texts;
  for (const char* folder : {"/usr/lib/systemd", "/run/systemd", "/etc/systemd"}) {
    std::error_code error;
    const fs::path base = root + folder;
    if (fs::exists(base / "logind.conf", error))
      texts.assign(1, FileTextGet(base / "logind.conf"));
    for (fs::directory_iterator entry(base / "logind.conf.d", error), end; !error && entry != end;
         entry.increment(error))
      if (entry->path().extension() == ".conf")
        parts[entry->path().filename().string()] = entry->path();
  }
  for (const auto& [name, path] : parts)
    texts.push_back(FileTextGet(path));
  return texts;
}

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  const std::size_t end = text.find_last_not_of(" \t\r");
  return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

// The last text that says so counts; without a word it removes. The most important text is last.
bool RemoveIpcGet(const std::vector<std::string>& texts) {
  bool removes = true;
  for (const std::string& text : texts) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      const std::size_t equals = line.find('=');
      if (equals == std::string::npos || Trimmed(line.substr(0, equals)) != "RemoveIPC")
        continue;
      std::string value = Trimmed(line.substr(equals + 1));
      std::transform(value.begin(), value.end(), value.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      // An empty value takes back what was said before.
      removes = value.empty() || value == "yes" || value == "y" || value == "true" ||
                value == "t" || value == "1" || value == "on";
    }
  }
  return removes;
}

void SessionManagerLook(const std::string& root, LimitsLook* look) {
  std::error_code error;
  look->hasSessionManager = fs::exists(root + "/run/systemd/seats", error) ||
                            fs::exists(root + "/run/systemd/users", error);
  look->removesIpc = look->hasSessionManager && RemoveIpcGet(SessionManagerTexts(root));
  look->isOrdinaryUser = geteuid() >= ORDINARY_USER_FIRST && geteuid() <= ORDINARY_USER_LAST;
}

}  // namespace

LimitsLook LimitsLookGet(const std::string& root) {
  LimitsLook look;
  SegmentsLook(&look);
  SetsLook(&look);
  NetworkLook(&look);
  ProcessLimitsLook(&look);
  NamespacesLook(&look);
  SessionManagerLook(root, &look);
  return look;
}
