#include "vorndiag/McastLook.h"

#include "net/VORNDGram.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::optional<int> NumberGet(const std::string& path) {
  std::ifstream file(path);
  int number = 0;
  return file >> number ? std::optional(number) : std::nullopt;
}

// The stricter of two counts, that of the interface and that of all.
int ReversePathFilterGet(const std::string& name) {
  const std::string folder = "/proc/sys/net/ipv4/conf/";
  return std::max(NumberGet(folder + name + "/rp_filter").value_or(0),
                  NumberGet(folder + "all/rp_filter").value_or(0));
}

const VORNNICProperties* RecordFind(unsigned int address) {
  const auto* end = VORN_NIC + VORN_NIC_COUNT;
  const auto* found = std::find_if(VORN_NIC, const_cast<VORNNICProperties*>(end),
                                   [&](const auto& nic) { return nic.address == address; });
  return address != 0 && found != end ? found : nullptr;
}

McastInterface InterfaceGet(const ifaddrs& entry) {
  McastInterface interface;
  interface.name = entry.ifa_name;
  interface.name.resize(std::min(interface.name.find(':'), interface.name.size()));
  interface.index = static_cast<int>(if_nametoindex(interface.name.c_str()));
  if (entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_INET)
    interface.address =
        ntohl(reinterpret_cast<const sockaddr_in*>(entry.ifa_addr)->sin_addr.s_addr);
  interface.isUp = (entry.ifa_flags & IFF_UP) != 0;
  interface.hasCarrier = (entry.ifa_flags & IFF_RUNNING) != 0;
  interface.canMulticast = (entry.ifa_flags & IFF_MULTICAST) != 0;
  interface.isLoopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
  interface.reversePathFilter = ReversePathFilterGet(interface.name);
  const VORNNICProperties* record = RecordFind(interface.address);
  interface.isUsed = record != nullptr && VornNicIsMulticastCapable(*record);
  interface.isPruned = record != nullptr && interface.isUp && (record->flags & NIC_UP) == 0;
  return interface;
}

bool HasName(const std::vector<McastInterface>& interfaces, const std::string& name) {
  return std::any_of(interfaces.begin(), interfaces.end(),
                     [&](const auto& interface) { return interface.name == name; });
}

std::vector<McastInterface> InterfacesGet() {
  std::vector<McastInterface> interfaces;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0)
    return interfaces;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET)
      interfaces.push_back(InterfaceGet(*entry));
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
    if (!HasName(interfaces, InterfaceGet(*entry).name))
      interfaces.push_back(InterfaceGet(*entry));
  freeifaddrs(list);
  return interfaces;
}

sockaddr_in SocketAddressOf(unsigned int address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  return result;
}

// To connect a datagram socket asks for the route and sends nothing.
unsigned int RouteGet(unsigned int peer) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in remote = SocketAddressOf(peer, 9);
  sockaddr_in local{};
  socklen_t size = sizeof local;
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) != 0 ||
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &size) != 0)
    local = {};
  if (descriptor >= 0)
    close(descriptor);
  return ntohl(local.sin_addr.s_addr);
}

}  // namespace

McastLook McastLookGet(unsigned int peer) {
  McastLook look;
  look.interfaces = InterfacesGet();
  look.membershipLimit = NumberGet("/proc/sys/net/ipv4/igmp_max_memberships");
  look.peer = peer;
  look.peerRoute = peer != 0 ? RouteGet(peer) : 0;
  return look;
}

int McastPortErrorGet(int port) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0)
    return errno;
  const int one = 1;
  const sockaddr_in local = SocketAddressOf(0, port);
  int error = 0;
  if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
      bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    error = errno;
  close(descriptor);
  return error;
}
