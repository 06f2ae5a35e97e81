// Each option is asked back from the kernel, or seen by what it does. Whatever is joined or sent to
// a group stays in a network namespace.

#include "Socket.h"

#include <cerrno>
#include <cstring>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

namespace {

bool PortIsShared() {
  Socket first, second;
  for (Socket* socket : {&first, &second})
    ClauseRequire("the result", socket->OptionSet(KEL_DGRAM_OPT_REUSEADDR, 1) == 0);
  const int port = PortTake(&first, 0);
  ClauseRequire("the result of the second bind", second.Bind(0, port) == port);
  ClauseRequire("the second socket's port", PortGet(second.DescriptorGet()) == port);
  return true;
}

// The kernel makes a number of its own of some values. It makes the same of them on a socket that
// the layer knows nothing of.
template <int code, int name, int... values> bool IntegerIsSet() {
  Socket socket;
  const int descriptor = socket.DescriptorGet(), other = SystemSocketGet();
  for (const int value : {values...}) {
    if (setsockopt(other, SOL_SOCKET, name, &value, sizeof value) != 0)
      ClauseSkip("the system does not set the option");
    const int expected = OptionGet<int>(other, SOL_SOCKET, name);
    const std::string row = " for " + std::to_string(value);
    ClauseRequire("the result" + row, socket.OptionSet(code, value) == 0);
    ClauseRequire("the value" + row, OptionGet<int>(descriptor, SOL_SOCKET, name) == expected);
  }
  return true;
}

// Alone with a loopback interface: whatever is joined or sent to a group stays there.
void NamespaceEnter() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    ClauseSkip(std::string("no network namespace of its own: ") + std::strerror(errno));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (ioctl(SystemSocketGet(), SIOCSIFFLAGS, &request) != 0)
    ClauseSkip("the namespace's loopback interface does not come up");
}

template <int code, int name, unsigned char value> bool ByteIsSet() {
  NamespaceEnter();
  Socket socket;
  ClauseRequire("the result", socket.OptionSet(code, value) == 0);
  ClauseRequire("the value", OptionGet<int>(socket.DescriptorGet(), IPPROTO_IP, name) == value);
  return true;
}

bool InterfaceIsSet() {
  NamespaceEnter();
  Socket socket;
  ClauseRequire("the result",
                socket.OptionSet(KEL_DGRAM_OPT_MULTICAST_IF, in_addr{htonl(LOOPBACK)}) == 0);
  const auto interface = OptionGet<in_addr>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_IF);
  ClauseRequire("the value", interface.s_addr == htonl(LOOPBACK));
  return true;
}

// Two sockets on one port, of which one joins the group, and a third one that sends to the group.
struct GroupHost {
  Socket joined, other, sender;
  int port = 0;
  GroupHost() {
    for (Socket* socket : {&joined, &other})
      socket->OptionSet(KEL_DGRAM_OPT_REUSEADDR, 1);
    port = joined.Bind(0, 0);
    other.Bind(0, port);
    sender.OptionSet(KEL_DGRAM_OPT_MULTICAST_IF, in_addr{htonl(LOOPBACK)});
  }
  void Send() { ClauseRequire("a datagram to the group", sender.Send(GROUP, port, "group")); }
  bool MemberHears() { return Received(joined.DescriptorGet()) == "group"; }
};

bool GroupIsJoined() {
  NamespaceEnter();
  GroupHost host;
  ClauseRequire("the result", host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP) == 0);
  host.Send();
  ClauseRequire("what the member hears", host.MemberHears());
  return true;
}

bool GroupIsHeardByItsMembersOnly() {
  NamespaceEnter();
  GroupHost host;
  host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  host.Send();
  ClauseRequire("what the member hears", host.MemberHears());
  ClauseRequire("the other socket's port", PortGet(host.other.DescriptorGet()) == host.port);
  ClauseRequire("what the other socket hears", NoneIsReceived(host.other.DescriptorGet()));
  return true;
}

// The library takes this error for success: two records of the interface table can be one device.
bool SecondJoinHasItsError() {
  NamespaceEnter();
  Socket socket;
  socket.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  errno = 0;
  ClauseRequire("the result", socket.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP) != 0);
  ClauseRequire("errno", errno == EADDRINUSE);
  return true;
}

bool GroupIsLeft() {
  NamespaceEnter();
  GroupHost host;
  host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  host.Send();
  ClauseRequire("what the member hears before", host.MemberHears());
  ClauseRequire("the result", host.joined.MembershipSet(KEL_DGRAM_OPT_DROP_MEMBERSHIP) == 0);
  host.Send();
  ClauseRequire("what it hears then", NoneIsReceived(host.joined.DescriptorGet()));
  return true;
}

}  // namespace

Clauses OptionClauses() {
  return {
      {"KELDGram::optionSet", "REUSEADDR: two sockets share a port", PortIsShared},
      {"KELDGram::optionSet", "REUSEADDR: the option by which other programs share a port as well",
       IntegerIsSet<KEL_DGRAM_OPT_REUSEADDR, SO_REUSEADDR, 1>},
      {"KELDGram::optionSet", "SNDBUF: bytes",
       IntegerIsSet<KEL_DGRAM_OPT_SNDBUF, SO_SNDBUF, 20000, 30000>},
      {"KELDGram::optionSet", "RCVBUF: bytes",
       IntegerIsSet<KEL_DGRAM_OPT_RCVBUF, SO_RCVBUF, 20000, 30000>},
      {"KELDGram::optionSet", "BROADCAST: a number that is not 0",
       IntegerIsSet<KEL_DGRAM_OPT_BROADCAST, SO_BROADCAST, 1>},
      {"KELDGram::optionSet", "MULTICAST_TTL: one byte",
       ByteIsSet<KEL_DGRAM_OPT_MULTICAST_TTL, IP_MULTICAST_TTL, 7>},
      {"KELDGram::optionSet", "MULTICAST_LOOP: one byte",
       ByteIsSet<KEL_DGRAM_OPT_MULTICAST_LOOP, IP_MULTICAST_LOOP, 0>},
      {"KELDGram::optionSet", "MULTICAST_IF: an address in network byte order", InterfaceIsSet},
      {"KELDGram::optionSet", "ADD_MEMBERSHIP: group and interface, in network byte order",
       GroupIsJoined},
      {"KELDGram::optionSet", "ADD_MEMBERSHIP: other sockets of the port hear nothing of the group",
       GroupIsHeardByItsMembersOnly},
      {"KELDGram::optionSet", "ADD_MEMBERSHIP: fails with EADDRINUSE for a group joined there",
       SecondJoinHasItsError},
      {"KELDGram::optionSet", "DROP_MEMBERSHIP: the group is heard no more", GroupIsLeft},
  };
}
