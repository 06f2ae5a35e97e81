// Runs in a network namespace of its own, with its own loopback and three pairs of interfaces, so
// nothing can leave the machine.

#include "net/VORNDGramMulticast.h"
#include "platform/VornCDRStream.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sched.h>
#include <sys/select.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int LENGTH = 256;
constexpr int GROUP_PORT = 7460;
constexpr unsigned int LOCALHOST = 0x7F000001, GROUP = 0xEF010203, FIRST_NIC = 0x0A4D0101;

char payload[LENGTH];

sockaddr_in Address(unsigned int address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  return result;
}

int SendBare(int descriptor, const sockaddr_in& to) {
  return sendto(descriptor, payload, LENGTH, 0, reinterpret_cast<const sockaddr*>(&to),
                sizeof to) == LENGTH;
}

// An endpoint bound to the loopback address, whose peer is itself.
struct Loopback {
  VORNDGram endpoint{0, 0, nullptr, -1};
  int descriptor = endpoint.socketGet(&endpoint);
  int port = endpoint.bind(&endpoint, LOCALHOST, 0);
  sockaddr_in address = Address(LOCALHOST, port);
  KELNetioAddr destination;
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, payload, LENGTH, LENGTH};
  Loopback() { KelNetioAddrInitialize(&destination, LOCALHOST, port); }
  bool Receive() const { return recv(descriptor, payload, LENGTH, MSG_DONTWAIT) == LENGTH; }
};

// Each step goes with the receiving of the datagram, so that the buffer never fills.
template <typename Send> void SendRun(benchmark::State& state, Send send) {
  Loopback loopback;
  for (auto _ : state)
    if (send(loopback) == 0 || !loopback.Receive())
      state.SkipWithError("a datagram was lost");
}

void SendLibrary(benchmark::State& state) {
  SendRun(state, [](Loopback& l) { return l.endpoint.SendTo(&l.destination, &l.stream); });
}

void SendFloor(benchmark::State& state) {
  SendRun(state, [](Loopback& l) { return SendBare(l.descriptor, l.address); });
}

template <typename Wait> void WaitRun(benchmark::State& state, Wait wait) {
  Loopback loopback;
  SendBare(loopback.descriptor, loopback.address);
  for (auto _ : state)
    if (wait(loopback) != 1)
      state.SkipWithError("nothing waits");
}

void WaitLibrary(benchmark::State& state) {
  WaitRun(state, [](Loopback& l) {
    KELNtpTime timeout{1, 0};
    return l.endpoint.HasDataWithSleep(&timeout);
  });
}

void WaitFloor(benchmark::State& state) {
  WaitRun(state, [](Loopback& l) {
    timeval timeout{1, 0};
    fd_set set;
    FD_ZERO(&set);
    FD_SET(l.descriptor, &set);
    return select(l.descriptor + 1, &set, nullptr, nullptr, &timeout);
  });
}

void WaitPoll(benchmark::State& state) {
  WaitRun(state, [](Loopback& l) {
    pollfd entry{l.descriptor, POLLIN, 0};
    return poll(&entry, 1, 1000);
  });
}

// Takes all interfaces but the first `count` out of use.
void InterfacesChoose(unsigned int count) {
  for (int i = 0; i < VORN_NIC_COUNT; ++i) {
    VORN_NIC[i].flags |= NIC_UP;
    if (VORN_NIC[i].address >= FIRST_NIC + 256 * count)
      VORN_NIC[i].flags &= ~std::uint32_t{NIC_UP};
  }
}

void MulticastLibrary(benchmark::State& state) {
  InterfacesChoose(static_cast<unsigned int>(state.range(0)));
  VORNMulticastProperties multicast{1, 1, 0};
  VORNDGramProperties properties;
  VornDGramPropertiesDefaultGet(&properties);
  VORNDGramMulticast endpoint(&multicast, 0, &properties, -1);
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, GROUP, GROUP_PORT);
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, payload, LENGTH, LENGTH};
  for (auto _ : state)
    if (endpoint.SendTo(&destination, &stream) == 0)
      state.SkipWithError("not sent");
}

void MulticastFloor(benchmark::State& state) {
  std::vector<int> descriptors;
  for (int i = 0; i < state.range(0); ++i) {
    descriptors.push_back(socket(AF_INET, SOCK_DGRAM, 0));
    const in_addr nic{htonl(FIRST_NIC + 256 * static_cast<unsigned>(i))};
    const unsigned char off = 0;
    setsockopt(descriptors.back(), IPPROTO_IP, IP_MULTICAST_IF, &nic, sizeof nic);
    setsockopt(descriptors.back(), IPPROTO_IP, IP_MULTICAST_LOOP, &off, sizeof off);
  }
  const sockaddr_in to = Address(GROUP, GROUP_PORT);
  for (auto _ : state)
    for (const int descriptor : descriptors)
      if (SendBare(descriptor, to) == 0)
        state.SkipWithError("not sent");
  for (const int descriptor : descriptors)
    close(descriptor);
}

bool NamespaceMake() {
  if (unshare(CLONE_NEWNET) != 0) {
    std::perror("net_bench: no network namespace of its own");
    return false;
  }
  const char* const script = "ip link set lo up; for i in 1 2 3; do"
                             " ip link add near$i type veth peer name far$i &&"
                             " ip addr add 10.77.$i.1/24 dev near$i && ip link set near$i up &&"
                             " ip link set far$i up || exit 1; done";
  return std::system(script) == 0 && VORNDGramClass::NICInitialize() != 0;
}

}  // namespace

BENCHMARK(SendLibrary)->Name("send and take/library");
BENCHMARK(SendFloor)->Name("send and take/sendto");
BENCHMARK(WaitLibrary)->Name("wait for data/library");
BENCHMARK(WaitFloor)->Name("wait for data/select");
BENCHMARK(WaitPoll)->Name("wait for data/poll");
BENCHMARK(MulticastLibrary)->Name("multicast/library")->DenseRange(1, 3);
BENCHMARK(MulticastFloor)->Name("multicast/sendto")->DenseRange(1, 3);

int main(int argc, char** argv) {
  if (!NamespaceMake())
    return 1;
  benchmark::Initialize(&argc, argv);
  const bool ran = benchmark::RunSpecifiedBenchmarks() > 0;
  VORNDGramClass::NICDestroy();
  return ran ? 0 : 1;
}
