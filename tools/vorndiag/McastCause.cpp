#include "vorndiag/McastCause.h"

#include "net/miscIPUtils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using Kind = McastCauseKind;

std::string Dotted(unsigned int address) {
  char text[VORN_ADDRESS_TEXT_SIZE];
  return VornAddressToStringPrintable(address, text);
}

std::string ErrorText(int error) { return std::string(" (") + std::strerror(error) + ")"; }

void Add(Kind kind, const std::string& text, std::vector<McastCause>* causes) {
  causes->push_back({kind, "", text});
}

// The first of these that holds is why the library does not use an interface.
void InterfaceJudge(const McastInterface& interface, std::vector<McastCause>* causes) {
  const auto add = [&](Kind kind, const std::string& text) {
    causes->push_back({kind, interface.name, interface.name + ": " + text});
  };
  if (interface.isLoopback)
    return;
  const std::string name = interface.name;
  if (!interface.isUp)
    return add(Kind::INTERFACE_DOWN, "it is down: `ip link set " + name + " up`");
  if (!interface.canMulticast)
    return add(Kind::NO_MULTICAST, "it cannot multicast: `ip link set " + name + " multicast on`");
  if (interface.address == 0)
    return add(Kind::NO_ADDRESS, "it has no IPv4 address: `ip addr add ADDRESS dev " + name + "`");
  if (interface.isPruned)
    return add(Kind::HOST_LIST,
               Dotted(interface.address) + " is outside the host list's subnets, which prunes it");
  if (!interface.hasCarrier)
    add(Kind::NO_CARRIER, "it has no carrier: is the cable in, is the other end up?");
}

int UsedCount(const McastLook& look) {
  return static_cast<int>(std::count_if(look.interfaces.begin(), look.interfaces.end(),
                                        [](const auto& interface) { return interface.isUsed; }));
}

void JoinJudge(const McastLook& look, std::vector<McastCause>* causes) {
  const int used = UsedCount(look);
  if (look.membershipLimit && used > *look.membershipLimit)
    Add(Kind::MEMBERSHIP_LIMIT,
        "a socket may have " + std::to_string(*look.membershipLimit) +
            " memberships, and a group takes one on each of " + std::to_string(used) +
            " interfaces: `sysctl -w net.ipv4.igmp_max_memberships=" + std::to_string(2 * used) +
            "`",
        causes);
  else
    Add(Kind::JOIN_FAILED, "the group cannot be joined on every interface that is used", causes);
}

void ReceiverJudge(const McastLook& look, std::vector<McastCause>* causes) {
  const std::string port = "port " + std::to_string(look.port);
  if (look.portError == EADDRINUSE)
    Add(Kind::PORT_TAKEN,
        port + " is taken by a program that does not share it: `ss -ulnp sport = :" +
            std::to_string(look.port) + "` shows which",
        causes);
  else if (look.portError != 0)
    Add(Kind::PORT_TAKEN, port + " cannot be bound" + ErrorText(look.portError), causes);
  else if (!look.isJoined)
    JoinJudge(look, causes);
}

void SenderJudge(const McastLook& look, std::vector<McastCause>* causes) {
  if (look.sendError == ENETUNREACH)
    Add(Kind::NO_ROUTE,
        "no interface is used for groups, and there is no route by which the system sends them",
        causes);
  else if (look.sendError != 0)
    Add(Kind::SEND_FAILED,
        "a send failed" + ErrorText(look.sendError) +
            ": what comes after that interface in the table sent nothing",
        causes);
  if (look.receives && !look.loopback)
    Add(Kind::LOOPBACK_OFF, "loopback is off: this host does not hear what it sends", causes);
}

// What comes in on an interface is dropped if the way back leads through another one (strict), or
// if there is none (loose too).
void ReversePathJudge(const McastLook& look, std::vector<McastCause>* causes) {
  for (const McastInterface& interface : look.interfaces) {
    const bool isStrict = interface.reversePathFilter == 1;
    if (!interface.isUsed || interface.reversePathFilter == 0 ||
        (look.peerRoute != 0 && (!isStrict || look.peerRoute == interface.address)))
      continue;
    const std::string way = look.peerRoute == 0
                                ? "to which there is no route"
                                : "the way to which is through " + Dotted(look.peerRoute);
    causes->push_back({Kind::REVERSE_PATH, interface.name,
                       interface.name + ": the reverse-path filter drops what comes from " +
                           Dotted(look.peer) + ", " + way + ": add a route, or `sysctl -w " +
                           "net.ipv4.conf." + interface.name + ".rp_filter=2` (loose; 0: off)"});
  }
}

void PeerJudge(const McastLook& look, std::vector<McastCause>* causes) {
  if (look.peerRoute == 0)
    Add(Kind::NO_ROUTE, "there is no route to " + Dotted(look.peer), causes);
  ReversePathJudge(look, causes);
}

}  // namespace

std::vector<McastCause> McastCausesGet(const McastLook& look) {
  std::vector<McastCause> causes;
  if (look.receives)
    ReceiverJudge(look, &causes);
  if (look.sends)
    SenderJudge(look, &causes);
  if (look.peer != 0)
    PeerJudge(look, &causes);
  for (const McastInterface& interface : look.interfaces)
    InterfaceJudge(interface, &causes);
  return causes;
}

const char* McastCauseName(McastCauseKind kind) {
  switch (kind) {
  case Kind::INTERFACE_DOWN:
    return "interface_down";
  case Kind::NO_CARRIER:
    return "no_carrier";
  case Kind::NO_MULTICAST:
    return "no_multicast";
  case Kind::NO_ADDRESS:
    return "no_address";
  case Kind::NO_ROUTE:
    return "no_route";
  case Kind::REVERSE_PATH:
    return "reverse_path";
  case Kind::MEMBERSHIP_LIMIT:
    return "membership_limit";
  case Kind::JOIN_FAILED:
    return "join_failed";
  case Kind::PORT_TAKEN:
    return "port_taken";
  case Kind::LOOPBACK_OFF:
    return "loopback_off";
  case Kind::HOST_LIST:
    return "host_list";
  case Kind::SEND_FAILED:
    break;
  }
  return "send_failed";
}
