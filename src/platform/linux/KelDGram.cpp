#include "platform/KelDGram.h"

#include <new>

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct SocketOption {
  int code;
  int level;
  int name;
};

constexpr SocketOption SOCKET_OPTIONS[] = {
    {KEL_DGRAM_OPT_REUSEADDR, SOL_SOCKET, SO_REUSEADDR},
    {KEL_DGRAM_OPT_SNDBUF, SOL_SOCKET, SO_SNDBUF},
    {KEL_DGRAM_OPT_RCVBUF, SOL_SOCKET, SO_RCVBUF},
    {KEL_DGRAM_OPT_DROP_MEMBERSHIP, IPPROTO_IP, IP_DROP_MEMBERSHIP},
    {KEL_DGRAM_OPT_ADD_MEMBERSHIP, IPPROTO_IP, IP_ADD_MEMBERSHIP},
    {KEL_DGRAM_OPT_MULTICAST_TTL, IPPROTO_IP, IP_MULTICAST_TTL},
    {KEL_DGRAM_OPT_MULTICAST_IF, IPPROTO_IP, IP_MULTICAST_IF},
    {KEL_DGRAM_OPT_MULTICAST_LOOP, IPPROTO_IP, IP_MULTICAST_LOOP},
    {KEL_DGRAM_OPT_BROADCAST, SOL_SOCKET, SO_BROADCAST},
};

int Refuse(int error, int result) {
  errno = error;
  return result;
}

bool PortIsValid(int port) { return port >= 0 && port <= 65535; }

sockaddr_in SocketAddressOf(unsigned int address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  return result;
}

int SocketGet(KELDGram* self) {
  return self->socketRecord != nullptr ? self->socketRecord->descriptor : -1;
}

int Bind(KELDGram* self, unsigned int localAddress, int port) {
  if (!PortIsValid(port))
    return Refuse(EINVAL, 0);
  sockaddr_in local = SocketAddressOf(localAddress, port);
  socklen_t size = sizeof local;
  auto* name = reinterpret_cast<sockaddr*>(&local);
  if (bind(SocketGet(self), name, size) != 0 || getsockname(SocketGet(self), name, &size) != 0)
    return 0;
  return ntohs(local.sin_port);
}

int SendTo(KELDGram* self, KELNetioAddr* destination, char* buffer, int length) {
  if (destination == nullptr || destination->portGet == nullptr ||
      destination->addressGet == nullptr || length < 0 || (buffer == nullptr && length > 0))
    return Refuse(EINVAL, 0);
  const int port = destination->portGet(destination);
  if (!PortIsValid(port))
    return Refuse(EINVAL, 0);
  const sockaddr_in remote = SocketAddressOf(destination->addressGet(destination), port);
  return sendto(SocketGet(self), buffer, static_cast<std::size_t>(length), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == length
             ? 1
             : 0;
}

int OptionSet(KELDGram* self, int code, void* value, int size) {
  if (value == nullptr || size < 0)
    return Refuse(EINVAL, -1);
  for (const SocketOption& option : SOCKET_OPTIONS)
    if (option.code == code)
      return setsockopt(SocketGet(self), option.level, option.name, value,
                        static_cast<socklen_t>(size));
  return Refuse(ENOPROTOOPT, -1);
}

int ReceiveFrom(KELDGram* self, KELNetioAddr* source, char* buffer, int capacity) {
  if (buffer == nullptr || capacity < 0)
    return Refuse(EINVAL, -1);
  sockaddr_in remote{};
  socklen_t size = sizeof remote;
  const ssize_t length =
      recvfrom(SocketGet(self), buffer, static_cast<std::size_t>(capacity),
               MSG_DONTWAIT | MSG_TRUNC, reinterpret_cast<sockaddr*>(&remote), &size);
  if (length >= 0)
    KelNetioAddrInitialize(source, ntohl(remote.sin_addr.s_addr), ntohs(remote.sin_port));
  return static_cast<int>(length);
}

// Without this a socket gets what was sent to its port for any group that anybody on the host has
// joined. A system without the option has no other way, and unicast works: so that is no failure.
void ForeignGroupsIgnore(int descriptor) {
  const int all = 0;
  static_cast<void>(setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_ALL, &all, sizeof all));
}

}  // namespace

int KelDGramInitialize(KELDGram* self) {
  if (self == nullptr)
    return 0;
  *self = {};
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  if (descriptor < 0)
    return 0;
  ForeignGroupsIgnore(descriptor);
  auto* record = new (std::nothrow) KELSocketRecord{descriptor};
  if (record == nullptr) {
    close(descriptor);
    return 0;
  }
  *self = {record, Bind, SendTo, OptionSet, SocketGet, ReceiveFrom};
  return 1;
}

void KelDGramRelease(KELDGram* self) {
  if (self == nullptr)
    return;
  if (self->socketRecord != nullptr && self->socketRecord->descriptor >= 0)
    close(self->socketRecord->descriptor);
  delete self->socketRecord;
  *self = {};
}

KELDGram* KelDGramNew() {
  auto* self = new (std::nothrow) KELDGram;
  if (self != nullptr && KelDGramInitialize(self) == 0) {
    delete self;
    return nullptr;
  }
  return self;
}

void KelDGramDelete(KELDGram* self) {
  KelDGramRelease(self);
  delete self;
}
