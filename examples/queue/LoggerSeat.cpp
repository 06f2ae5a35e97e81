#include "LoggerSeat.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Empty, with the reason in `errno`, where /proc is not mounted. A name without the namespace would
// not be the one that others use.
std::string NameGet(int queue) {
  struct stat state = {};
  if (stat("/proc/self/ns/ipc", &state) != 0)
    return "";
  return "vorn-logger/" + std::to_string(state.st_ino) + "/" + std::to_string(queue);
}

bool NameBind(int socket, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // The byte 0 in front makes the name an abstract one.
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const std::size_t size = offsetof(sockaddr_un, sun_path) + 1 + name.size();
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)) ==
         0;
}

}  // namespace

LoggerSeat::LoggerSeat(int queue) : _socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const std::string name = NameGet(queue);
  if (_socket < 0 || name.empty() || !NameBind(_socket, name))
    _error = errno;
}

LoggerSeat::~LoggerSeat() {
  if (_socket >= 0)
    close(_socket);
}
