// The library opens, closes and uses the socket through these operations only, with two exceptions:
// it waits for data with `select` on the descriptor, and it puts a descriptor that a program gives
// it into the socket record. Datagrams go to 127.0.0.1; multicast stays in a network namespace.

#include "Clause.h"
#include "LayerObjects.h"

#include "platform/KelDGram.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001, GROUP = 0xEF010203;

// An object in place, as an endpoint of the library has it.
struct Socket {
  KELDGram dgram;
  Socket() {
    if (KelDGramInitialize(&dgram) == 0)
      ClauseSkip("KelDGramInitialize gives no socket");
  }
  int DescriptorGet() { return dgram.socketGet(&dgram); }
  int Bind(unsigned int address, int port) { return dgram.bind(&dgram, address, port); }
  bool Send(unsigned int address, int port, std::string text) {
    return dgram.sendTo(&dgram, AddressNew(address, port), text.data(),
                        static_cast<int>(text.size())) != 0;
  }
  template <typename Value> int OptionSet(int code, Value value) {
    return dgram.optionSet(&dgram, code, &value, sizeof value);
  }
  int MembershipSet(int code) {
    return OptionSet(code, ip_mreq{{htonl(GROUP)}, {htonl(LOOPBACK)}});
  }
};

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

sockaddr_in NameGet(int descriptor) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  ClauseRequire("the socket's name",
                getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &size) == 0);
  return name;
}

int PortGet(int descriptor) { return ntohs(NameGet(descriptor).sin_port); }

template <typename Value> Value OptionGet(int descriptor, int level, int name) {
  Value value{};
  socklen_t size = sizeof value;
  ClauseRequire("the socket's option", getsockopt(descriptor, level, name, &value, &size) == 0);
  return value;
}

// Whether no datagram comes, although it has time to.
bool NoneIsReceived(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return poll(&wait, 1, 200) == 0;
}

// The next datagram, or "none" if none comes.
std::string Received(int descriptor, int* port = nullptr) {
  if (!DatagramAwait(descriptor))
    return "none";
  std::string text(70000, '\0');
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t length =
      recvfrom(descriptor, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  if (port != nullptr)
    *port = ntohs(from.sin_port);
  return text;
}

bool StartMayBeRepeated() {
  KelNetioInit();
  KelNetioInit();
  return KelDGramNew() != nullptr;
}

bool NewHasAUDPSocket() {
  KELDGram* dgram = KelDGramNew();
  if (dgram == nullptr)
    return false;
  const int descriptor = dgram->socketGet(dgram);
  ClauseRequire("UDP", OptionGet<int>(descriptor, SOL_SOCKET, SO_TYPE) == SOCK_DGRAM);
  ClauseRequire("IPv4", NameGet(descriptor).sin_family == AF_INET);
  return true;
}

bool DeleteClosesTheSocket() {
  KELDGram* dgram = KelDGramNew();
  const int descriptor = dgram->socketGet(dgram);
  ClauseRequire("the socket before", IsOpen(descriptor));
  KelDGramDelete(dgram);
  return !IsOpen(descriptor);
}

void DescriptorsForbid() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_NOFILE, &none);
}

bool NewTellsThatThereIsNoSocket() {
  DescriptorsForbid();
  return KelDGramNew() == nullptr;
}

bool InitializeWritesOneObject() {
  Guarded<KELDGram> guarded;
  ClauseRequire("the result", KelDGramInitialize(&guarded.object) != 0);
  ClauseRequire("what is beside it", guarded.IsIntact());
  return true;
}

bool RecordBeginsWithTheDescriptor() {
  Socket socket;
  ClauseRequire("the record", socket.dgram.socketRecord != nullptr);
  ClauseRequire("an open descriptor", IsOpen(socket.DescriptorGet()));
  ClauseRequire("the record's descriptor",
                socket.dgram.socketRecord->descriptor == socket.DescriptorGet());
  return true;
}

bool InitializeTellsThatThereIsNoSocket() {
  DescriptorsForbid();
  KELDGram dgram;
  const int result = KelDGramInitialize(&dgram);
  KelDGramRelease(&dgram);
  return result == 0;
}

bool ReleaseClosesTheSocket() {
  Socket socket;
  const int descriptor = socket.DescriptorGet();
  ClauseRequire("the socket before", IsOpen(descriptor));
  KelDGramRelease(&socket.dgram);
  return !IsOpen(descriptor);
}

bool ReleaseIgnoresWhatHoldsNothing() {
  KELDGram never;
  KelDGramRelease(&never);
  Socket socket;
  KelDGramRelease(&socket.dgram);
  socket.dgram.socketRecord = nullptr;
  KelDGramRelease(&socket.dgram);
  return true;
}

// One that the layer knows nothing of.
int SystemSocketGet() {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (descriptor == -1)
    ClauseSkip("the system gives no socket");
  return descriptor;
}

// As an endpoint does with the descriptor that a program gives to its constructor.
int DescriptorExchange(Socket* socket) {
  const int other = SystemSocketGet();
  close(socket->dgram.socketRecord->descriptor);
  socket->dgram.socketRecord->descriptor = other;
  return other;
}

bool ExchangedDescriptorIsTold() {
  Socket socket;
  const int other = DescriptorExchange(&socket);
  return socket.DescriptorGet() == other;
}

bool ExchangedDescriptorIsClosed() {
  Socket socket;
  const int other = DescriptorExchange(&socket);
  KelDGramRelease(&socket.dgram);
  return !IsOpen(other);
}

bool ExchangedDescriptorIsUsed() {
  Socket socket, receiver;
  const int other = DescriptorExchange(&socket);
  const int port = receiver.Bind(LOOPBACK, 0);
  const int own = socket.Bind(LOOPBACK, 0);
  ClauseRequire("the port of bind", own == PortGet(other));
  ClauseRequire("the result", socket.Send(LOOPBACK, port, "text"));
  int from = 0;
  ClauseRequire("the datagram", Received(receiver.DescriptorGet(), &from) == "text");
  ClauseRequire("its source", from == own);
  return true;
}

// Binds to a port that the system chooses.
int PortTake(Socket* socket, unsigned int address) {
  const int port = socket->Bind(address, 0);
  ClauseRequire("a chosen port", port > 0);
  ClauseRequire("the socket's own port", PortGet(socket->DescriptorGet()) == port);
  return port;
}

bool ChosenPortIsTold() {
  Socket socket;
  PortTake(&socket, 0);
  return true;
}

// A port that was free a moment ago.
int FreePortGet() {
  const int descriptor = SystemSocketGet();
  const sockaddr_in any{AF_INET, 0, {htonl(LOOPBACK)}, {}};
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
    ClauseSkip("no port is free");
  const int port = PortGet(descriptor);
  close(descriptor);
  return port;
}

bool AskedPortIsTold() {
  Socket socket;
  const int port = FreePortGet();
  ClauseRequire("the result", socket.Bind(LOOPBACK, port) == port);
  ClauseRequire("the socket's port", PortGet(socket.DescriptorGet()) == port);
  return true;
}

bool AddressIsBound() {
  Socket socket;
  socket.Bind(LOOPBACK, 0);
  return NameGet(socket.DescriptorGet()).sin_addr.s_addr == htonl(LOOPBACK);
}

bool UsedPortIsNotTold() {
  Socket first, second;
  const int port = PortTake(&first, LOOPBACK);
  ClauseRequire("the result of the second bind", second.Bind(LOOPBACK, port) != port);
  return true;
}

bool DatagramsAreCarried() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  for (const std::size_t length : {0U, 1U, 1472U, 9216U}) {
    const std::string text(length, static_cast<char>('a' + length % 26));
    const std::string row = " of " + std::to_string(length) + " bytes";
    ClauseRequire("the result" + row, sender.Send(LOOPBACK, port, text));
    ClauseRequire("the datagram" + row, Received(receiver.DescriptorGet()) == text);
  }
  ClauseRequire("no other datagram", NoneIsReceived(receiver.DescriptorGet()));
  return true;
}

bool SendComesFromTheBoundPort() {
  Socket sender, receiver;
  const int own = sender.Bind(LOOPBACK, 0), port = receiver.Bind(LOOPBACK, 0);
  int from = 0;
  sender.Send(LOOPBACK, port, "text");
  ClauseRequire("the datagram", Received(receiver.DescriptorGet(), &from) == "text");
  ClauseRequire("its source", from == own);
  return true;
}

bool RefusedSendIsTold() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  return !sender.Send(LOOPBACK, port, std::string(66000, 'x'));
}

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

bool TTLIsSet() {
  NamespaceEnter();
  Socket socket;
  ClauseRequire("the result", socket.OptionSet<unsigned char>(KEL_DGRAM_OPT_MULTICAST_TTL, 7) == 0);
  ClauseRequire("the value",
                OptionGet<int>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_TTL) == 7);
  return true;
}

bool LoopIsSet() {
  NamespaceEnter();
  Socket socket;
  ClauseRequire("the result",
                socket.OptionSet<unsigned char>(KEL_DGRAM_OPT_MULTICAST_LOOP, 0) == 0);
  ClauseRequire("the value",
                OptionGet<int>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_LOOP) == 0);
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

Clauses DGramClauses() {
  return {
      {"KelNetioInit", "may be called again", StartMayBeRepeated},
      {"KelDGramNew", "makes an object with an open IPv4 UDP socket", NewHasAUDPSocket},
      {"KelDGramNew", "returns null if there is no socket", NewTellsThatThereIsNoSocket},
      {"KelDGramDelete", "closes the socket", DeleteClosesTheSocket},
      {"KelDGramInitialize", "fills an object of six pointers, and nothing beside it",
       InitializeWritesOneObject},
      {"KelDGramInitialize",
       "puts a socket record first, whose first field is the descriptor of `socketGet`",
       RecordBeginsWithTheDescriptor},
      {"KelDGramInitialize", "returns 0 if there is no socket, and the object may be released",
       InitializeTellsThatThereIsNoSocket},
      {"KelDGramRelease", "closes the socket", ReleaseClosesTheSocket},
      {"KelDGramRelease", "ignores an object that holds nothing, or nothing any more",
       ReleaseIgnoresWhatHoldsNothing},
      {"KelDGramRelease", "closes a descriptor that was put into the record",
       ExchangedDescriptorIsClosed},
      {"KELDGram::socketGet", "tells a descriptor that was put into the record",
       ExchangedDescriptorIsTold},
      {"KELDGram::bind", "with port 0 returns the port that the system chose", ChosenPortIsTold},
      {"KELDGram::bind", "returns the port that it was asked for", AskedPortIsTold},
      {"KELDGram::bind", "takes an address in host byte order", AddressIsBound},
      {"KELDGram::bind", "does not return a port that is another socket's", UsedPortIsNotTold},
      {"KELDGram::sendTo", "sends one datagram of exactly these bytes, and says so",
       DatagramsAreCarried},
      {"KELDGram::sendTo", "sends from the port that is bound", SendComesFromTheBoundPort},
      {"KELDGram::sendTo", "uses a descriptor that was put into the record",
       ExchangedDescriptorIsUsed},
      {"KELDGram::sendTo", "returns 0 for what the system refuses", RefusedSendIsTold},
      {"KELDGram::optionSet", "REUSEADDR: two sockets share a port", PortIsShared},
      {"KELDGram::optionSet", "SNDBUF: bytes",
       IntegerIsSet<KEL_DGRAM_OPT_SNDBUF, SO_SNDBUF, 20000, 30000>},
      {"KELDGram::optionSet", "RCVBUF: bytes",
       IntegerIsSet<KEL_DGRAM_OPT_RCVBUF, SO_RCVBUF, 20000, 30000>},
      {"KELDGram::optionSet", "BROADCAST: a number that is not 0",
       IntegerIsSet<KEL_DGRAM_OPT_BROADCAST, SO_BROADCAST, 1>},
      {"KELDGram::optionSet", "MULTICAST_TTL: one byte", TTLIsSet},
      {"KELDGram::optionSet", "MULTICAST_LOOP: one byte", LoopIsSet},
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
