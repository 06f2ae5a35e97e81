#include "support/Namespaces.h"

#include "support/Case.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

void NamespaceEnter(int kind, const char* what) {
  if (unshare(kind) != 0)
    throw Unavailable(std::string("no ") + what + " namespace of our own: " + std::strerror(errno));
}

// Without the right to do it, the variants with large messages are left out.
void LimitRaise(const char* path, const char* value) {
  if (std::FILE* file = std::fopen(path, "w")) {
    std::fputs(value, file);
    std::fclose(file);
  }
}

}  // namespace

void Shell(const std::string& command) {
  // NOLINTNEXTLINE(bugprone-command-processor): the commands are this program's own.
  if (std::system(command.c_str()) != 0)
    throw Unavailable("this failed: " + command);
}

void IpcNamespaceEnter() {
  NamespaceEnter(CLONE_NEWIPC, "IPC");
  for (const char* path :
       {"/proc/sys/kernel/msgmax", "/proc/sys/kernel/msgmnb", "/proc/sys/fs/mqueue/msgsize_max"})
    LimitRaise(path, "1048576");
  LimitRaise("/proc/sys/fs/mqueue/msg_max", "256");
}

void NetNamespaceEnter() {
  NamespaceEnter(CLONE_NEWNET, "network");
  Shell("ip link set lo up");
}

std::string MemoryFolderMake() {
  NamespaceEnter(CLONE_NEWNS, "mount");
  const char* const place = "/mnt";
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("bench", place, "tmpfs", 0, "size=1300m") != 0)
    throw Unavailable(std::string("no memory file system: ") + std::strerror(errno));
  return place;
}

// An interface is sent to another network by the process that is there, so the pair is made at the
// far end, by a process that is already at the near one.
int FarNetworkMake(int addresses) {
  NetNamespaceEnter();
  const int far = open("/proc/self/ns/net", O_RDONLY);
  NetNamespaceEnter();
  const std::string there = "nsenter --net=/proc/self/fd/" + std::to_string(far) + " ";
  Shell(there + "ip link add far0 type veth peer name near0 netns " + std::to_string(getpid()));
  Shell("ip addr add 10.77.0.1/24 dev near0 && ip link set near0 up");
  Shell("i=2; while [ $i -le " + std::to_string(addresses + 1) + " ]; do " + there +
        "ip addr add 10.77.0.$i/24 dev far0 || exit 1; i=$((i + 1)); done");
  Shell(there + "ip link set far0 up");
  return far;
}
