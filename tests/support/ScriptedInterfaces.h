#ifndef SUPPORT_SCRIPTED_INTERFACES_H
#define SUPPORT_SCRIPTED_INTERFACES_H

#include "net/VORNDGram.h"
#include "support/Messages.h"

#include <cerrno>
#include <cstring>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

/// One record of the system's interface list.
struct ScriptedInterface {
  unsigned int address;  ///< host byte order
  int systemFlags;
  int family = AF_INET;
  bool answers = true;  ///< to the request for its flags
};

constexpr int UP = IFF_UP, LOOP = IFF_LOOPBACK, CAST = IFF_MULTICAST, BROAD = IFF_BROADCAST;

/// Scripts the two requests for interfaces. The length that comes back is that of the whole list,
/// and a flags reply overwrites the address.
inline void InterfacesScript(const std::vector<ScriptedInterface>& list) {
  System().ioctl = [list](unsigned long request, void* argument) {
    if (request == SIOCGIFCONF) {
      auto* conf = static_cast<ifconf*>(argument);
      const std::size_t room = static_cast<std::size_t>(conf->ifc_len) / sizeof(ifreq);
      for (std::size_t i = 0; i < list.size() && i < room; ++i) {
        conf->ifc_req[i].ifr_name[0] = static_cast<char>(i);
        const sockaddr_in address{
            static_cast<sa_family_t>(list[i].family), 0, {htonl(list[i].address)}, {}};
        std::memcpy(&conf->ifc_req[i].ifr_addr, &address, sizeof address);
      }
      conf->ifc_len = static_cast<int>(list.size() * sizeof(ifreq));
      return 0;
    }
    auto* reply = static_cast<ifreq*>(argument);
    const ScriptedInterface& interface = list.at(static_cast<std::size_t>(reply->ifr_name[0]));
    std::memset(&reply->ifr_ifru, 0x5a, sizeof reply->ifr_ifru);
    reply->ifr_flags = static_cast<short>(interface.systemFlags);
    return request == SIOCGIFFLAGS && interface.answers ? 0 : -1;
  };
}

/// The library's table while this lives, made from such a list.
struct InterfaceTable {
  explicit InterfaceTable(const std::vector<ScriptedInterface>& list) {
    InterfacesScript(list);
    EXPECT_EQ(VORNDGramClass::NICInitialize(), 1);
  }
  ~InterfaceTable() { EXPECT_EQ(VORNDGramClass::NICDestroy(), 1); }
  InterfaceTable(const InterfaceTable&) = delete;
};

#endif
