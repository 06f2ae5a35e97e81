// In a network of its own, with its own loopback and sixteen pairs of interfaces, so that nothing
// can leave the machine.

#include "targets.h"

#include "floors.h"
#include "net/VORNDGramMulticast.h"
#include "platform/VornCDRStream.h"
#include "support/Address.h"
#include "support/Namespaces.h"
#include "support/Timed.h"

#include <memory>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr int LENGTH = 256;
constexpr int GROUP_PORT = 7460;
constexpr int MOST_INTERFACES = 16;
constexpr unsigned int LOCALHOST = 0x7F000001, GROUP = 0xEF010203, FIRST_NIC = 0x0A4D0101;

char payload[LENGTH];

int Sure(int result, const char* what) {
  if (result <= 0)
    throw std::runtime_error(std::string(what) + " failed");
  return result;
}

// An endpoint bound to the loopback address, whose peer is itself. All variants use its socket.
struct Loopback {
  VORNDGram endpoint{0, 0, nullptr, -1};
  int descriptor = endpoint.socketGet(&endpoint);
  int port = endpoint.bind(&endpoint, LOCALHOST, 0);
  sockaddr_in address = Address(LOCALHOST, port);
  KELNetioAddr destination;
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, payload, LENGTH, LENGTH};

  Loopback() { KelNetioAddrInitialize(&destination, LOCALHOST, port); }
  int LibrarySend() { return endpoint.SendTo(&destination, &stream); }
  int FloorSend() const {
    return floors::DatagramSend(descriptor, payload, LENGTH, address) ? 1 : 0;
  }
  int FloorReceive() const {
    return static_cast<int>(floors::DatagramReceive(descriptor, payload, LENGTH));
  }
  int LibraryReceive() {
    KELNetioAddr source;
    return endpoint.receiveFrom(&endpoint, &source, payload, LENGTH);
  }
  int LibraryWait() {
    KELNtpTime timeout{1, 0};
    return endpoint.HasDataWithSleep(&timeout);
  }
};

using LoopbackPointer = std::shared_ptr<Loopback>;

void SendRun(Runner& runner) {
  const auto l = std::make_shared<Loopback>();
  // Each datagram is taken, so that the buffer never fills: by the bare call, whoever sent it.
  Case subject{"send, and take it bare", "", 0};
  subject.Add("library", Role::LIBRARY, Always([l] {
                return Sure(l->LibrarySend(), "SendTo") + Sure(l->FloorReceive(), "recvfrom");
              }));
  subject.Add("floor", Role::FLOOR, Always([l] {
                return Sure(l->FloorSend(), "sendto") + Sure(l->FloorReceive(), "recvfrom");
              }));
  runner.Run(subject);
}

void WaitRun(Runner& runner) {
  const auto l = std::make_shared<Loopback>();
  Sure(l->FloorSend(), "sendto");
  Case subject{"wait for what is there", "", 0};
  subject.Add("library", Role::LIBRARY, Always([l] { return Sure(l->LibraryWait(), "wait"); }));
  subject.Add("floor", Role::FLOOR,
              Always([l] { return Sure(floors::DatagramWait(l->descriptor), "select"); }));
  subject.Add("poll", Role::PEER, Always([l] {
                pollfd entry{l->descriptor, POLLIN, 0};
                return Sure(poll(&entry, 1, 1000), "poll");
              }));
  runner.Run(subject);
}

void LoopRun(Runner& runner) {
  const auto l = std::make_shared<Loopback>();
  Case subject{"send, wait and take", "", 0};
  subject.Add("library", Role::LIBRARY, Always([l] {
                Sure(l->LibrarySend(), "SendTo");
                Sure(l->LibraryWait(), "wait");
                return Sure(l->LibraryReceive(), "receiveFrom");
              }));
  subject.Add("floor", Role::FLOOR, Always([l] {
                Sure(l->FloorSend(), "sendto");
                Sure(floors::DatagramWait(l->descriptor), "select");
                return Sure(l->FloorReceive(), "recvfrom");
              }));
  runner.Run(subject);
}

// Leaves only the first `count` of our interfaces in use.
void InterfacesChoose(unsigned int count) {
  for (int i = 0; i < VORN_NIC_COUNT; ++i) {
    VORN_NIC[i].flags |= NIC_UP;
    if (VORN_NIC[i].address >= FIRST_NIC + 256 * count)
      VORN_NIC[i].flags &= ~std::uint32_t{NIC_UP};
  }
}

Measure LibraryMulticast() {
  VORNMulticastProperties multicast{1, 1, 0};
  VORNDGramProperties properties;
  VornDGramPropertiesDefaultGet(&properties);
  const auto endpoint = std::make_shared<VORNDGramMulticast>(&multicast, 0, &properties, -1);
  KELNetioAddr to;
  KelNetioAddrInitialize(&to, GROUP, GROUP_PORT);
  const VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, payload, LENGTH, LENGTH};
  return Timed([endpoint, to, bytes = stream]() mutable {
    return Sure(endpoint->SendTo(&to, &bytes), "multicast");
  });
}

// Sockets that close with their owner.
struct Sockets {
  std::vector<int> descriptors;
  ~Sockets() {
    for (const int descriptor : descriptors)
      close(descriptor);
  }
};

Measure FloorMulticast(unsigned int interfaces) {
  const auto sockets = std::make_shared<Sockets>();
  sockets->descriptors.reserve(interfaces);
  for (unsigned int i = 0; i < interfaces; ++i) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    const in_addr nic{htonl(FIRST_NIC + 256 * i)};
    const unsigned char off = 0;
    setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_IF, &nic, sizeof nic);
    setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_LOOP, &off, sizeof off);
    sockets->descriptors.push_back(descriptor);
  }
  return Timed([sockets, to = Address(GROUP, GROUP_PORT)] {
    for (const int descriptor : sockets->descriptors)
      Sure(floors::DatagramSend(descriptor, payload, LENGTH, to) ? 1 : 0, "sendto");
    return payload[0];
  });
}

void NetworkMake() {
  NetNamespaceEnter();
  Shell("i=1; while [ $i -le " + std::to_string(MOST_INTERFACES) +
        " ]; do ip link add near$i type veth peer name far$i &&"
        " ip addr add 10.77.$i.1/24 dev near$i && ip link set near$i up &&"
        " ip link set far$i up || exit 1; i=$((i + 1)); done");
  if (VORNDGramClass::NICInitialize() == 0)
    throw std::runtime_error("no interface table");
}

}  // namespace

void DatagramBench(Runner& runner) {
  NetworkMake();
  SendRun(runner);
  WaitRun(runner);
  LoopRun(runner);
  for (const unsigned int interfaces : {1U, 4U, 16U}) {
    InterfacesChoose(interfaces);
    Case subject{"multicast", "interfaces", interfaces};
    subject.Add("library", Role::LIBRARY, LibraryMulticast);
    subject.Add("floor", Role::FLOOR, [=] { return FloorMulticast(interfaces); });
    runner.Run(subject);
  }
  VORNDGramClass::NICDestroy();
}
