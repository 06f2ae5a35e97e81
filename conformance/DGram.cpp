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
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &size);
  return name;
}

int PortGet(int descriptor) { return ntohs(NameGet(descriptor).sin_port); }

template <typename Value> Value OptionGet(int descriptor, int level, int name) {
  Value value{};
  socklen_t size = sizeof value;
  getsockopt(descriptor, level, name, &value, &size);
  return value;
}

// The next datagram, or "none" if none comes.
std::string Received(int descriptor, int* port = nullptr) {
  pollfd wait{descriptor, POLLIN, 0};
  if (poll(&wait, 1, 200) != 1)
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
  return OptionGet<int>(descriptor, SOL_SOCKET, SO_TYPE) == SOCK_DGRAM &&
         NameGet(descriptor).sin_family == AF_INET;
}

bool DeleteClosesTheSocket() {
  KELDGram* dgram = KelDGramNew();
  const int descriptor = dgram->socketGet(dgram);
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
  return KelDGramInitialize(&guarded.object) != 0 && guarded.IsIntact();
}

bool RecordBeginsWithTheDescriptor() {
  Socket socket;
  return socket.dgram.socketRecord != nullptr && IsOpen(socket.DescriptorGet()) &&
         socket.dgram.socketRecord->descriptor == socket.DescriptorGet();
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

// As an endpoint does with the descriptor that a program gives to its constructor.
int DescriptorExchange(Socket* socket) {
  const int other = ::socket(AF_INET, SOCK_DGRAM, 0);
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
  int from = 0;
  return socket.Bind(LOOPBACK, 0) == PortGet(other) && socket.Send(LOOPBACK, port, "text") &&
         Received(receiver.DescriptorGet(), &from) == "text" && from == PortGet(other);
}

bool ChosenPortIsTold() {
  Socket socket;
  const int port = socket.Bind(0, 0);
  return port > 0 && port == PortGet(socket.DescriptorGet());
}

// A port that was free a moment ago.
int FreePortGet() {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
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
  return socket.Bind(LOOPBACK, port) == port && PortGet(socket.DescriptorGet()) == port;
}

bool AddressIsBound() {
  Socket socket;
  socket.Bind(LOOPBACK, 0);
  return NameGet(socket.DescriptorGet()).sin_addr.s_addr == htonl(LOOPBACK);
}

bool UsedPortIsNotTold() {
  Socket first, second;
  const int port = first.Bind(LOOPBACK, 0);
  return second.Bind(LOOPBACK, port) != port;
}

bool DatagramsAreCarried() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  for (const std::size_t length : {0U, 1U, 1472U, 9216U}) {
    const std::string text(length, static_cast<char>('a' + length % 26));
    if (!sender.Send(LOOPBACK, port, text) || Received(receiver.DescriptorGet()) != text)
      return false;
  }
  return Received(receiver.DescriptorGet()) == "none";
}

bool SendComesFromTheBoundPort() {
  Socket sender, receiver;
  const int own = sender.Bind(LOOPBACK, 0), port = receiver.Bind(LOOPBACK, 0);
  int from = 0;
  sender.Send(LOOPBACK, port, "text");
  return Received(receiver.DescriptorGet(), &from) == "text" && from == own;
}

bool RefusedSendIsTold() {
  Socket sender, receiver;
  const int port = receiver.Bind(LOOPBACK, 0);
  return !sender.Send(LOOPBACK, port, std::string(66000, 'x'));
}

bool PortIsShared() {
  Socket first, second;
  const bool isSet = first.OptionSet(KEL_DGRAM_OPT_REUSEADDR, 1) == 0 &&
                     second.OptionSet(KEL_DGRAM_OPT_REUSEADDR, 1) == 0;
  const int port = first.Bind(0, 0);
  return isSet && second.Bind(0, port) == port;
}

template <int code, int name, int value> bool IntegerIsSet() {
  Socket socket;
  const int before = OptionGet<int>(socket.DescriptorGet(), SOL_SOCKET, name);
  const int result = socket.OptionSet(code, value);
  const int after = OptionGet<int>(socket.DescriptorGet(), SOL_SOCKET, name);
  return result == 0 && after >= value && after != before;
}

// Alone with a loopback interface: whatever is joined or sent to a group stays there.
void NamespaceEnter() {
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    ClauseSkip(std::string("no network namespace of its own: ") + std::strerror(errno));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (ioctl(::socket(AF_INET, SOCK_DGRAM, 0), SIOCSIFFLAGS, &request) != 0)
    ClauseSkip("the namespace's loopback interface does not come up");
}

bool TTLIsSet() {
  NamespaceEnter();
  Socket socket;
  return socket.OptionSet<unsigned char>(KEL_DGRAM_OPT_MULTICAST_TTL, 7) == 0 &&
         OptionGet<int>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_TTL) == 7;
}

bool LoopIsSet() {
  NamespaceEnter();
  Socket socket;
  return socket.OptionSet<unsigned char>(KEL_DGRAM_OPT_MULTICAST_LOOP, 0) == 0 &&
         OptionGet<int>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_LOOP) == 0;
}

bool InterfaceIsSet() {
  NamespaceEnter();
  Socket socket;
  return socket.OptionSet(KEL_DGRAM_OPT_MULTICAST_IF, in_addr{htonl(LOOPBACK)}) == 0 &&
         OptionGet<in_addr>(socket.DescriptorGet(), IPPROTO_IP, IP_MULTICAST_IF).s_addr ==
             htonl(LOOPBACK);
}

// Two sockets on one port, and what each hears of a datagram to the group.
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
  bool HeardBy(Socket& socket) {
    sender.Send(GROUP, port, "group");
    return Received(socket.DescriptorGet()) == "group";
  }
};

bool GroupIsJoined() {
  NamespaceEnter();
  GroupHost host;
  return host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP) == 0 && host.HeardBy(host.joined);
}

bool GroupIsHeardByItsMembersOnly() {
  NamespaceEnter();
  GroupHost host;
  host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  return !host.HeardBy(host.other);
}

// The library takes this error for success: two records of the interface table can be one device.
bool SecondJoinHasItsError() {
  NamespaceEnter();
  Socket socket;
  socket.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  errno = 0;
  return socket.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP) != 0 && errno == EADDRINUSE;
}

bool GroupIsLeft() {
  NamespaceEnter();
  GroupHost host;
  host.joined.MembershipSet(KEL_DGRAM_OPT_ADD_MEMBERSHIP);
  const int left = host.joined.MembershipSet(KEL_DGRAM_OPT_DROP_MEMBERSHIP);
  return left == 0 && !host.HeardBy(host.joined);
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
       IntegerIsSet<KEL_DGRAM_OPT_SNDBUF, SO_SNDBUF, 20000>},
      {"KELDGram::optionSet", "RCVBUF: bytes",
       IntegerIsSet<KEL_DGRAM_OPT_RCVBUF, SO_RCVBUF, 20000>},
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
