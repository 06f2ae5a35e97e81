#include "hosts/HostTable.h"
#include "hosts/VORNHostMask.h"
#include "net/VORNDGramMulticast.h"
#include "net/miscIPUtils.h"
#include "platform/VornCDRStream.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

namespace {

constexpr int PORT = 7460;
constexpr unsigned int FIRST_GROUP = 0xEF010203, SECOND_GROUP = 0xEF010204;

void Run(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

void Send(VORNDGramClass& endpoint, std::string text) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, text.data(), static_cast<int>(text.size()), VORN_CDR_BIG_ENDIAN);
  VornCDRStreamPositionSet(&stream, stream.capacity);
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, FIRST_GROUP, PORT);
  EXPECT_EQ(endpoint.SendTo(&destination, &stream), 1);
}

// The next `count` datagrams with where they came from.
std::multiset<std::string> Received(VORNDGram& endpoint, int count) {
  std::multiset<std::string> received;
  while (count-- > 0) {
    KELNtpTime wait{2, 0};
    KELNetioAddr source;
    char text[16] = "", address[VORN_ADDRESS_TEXT_SIZE];
    if (endpoint.HasDataWithSleep(&wait) > 0)
      endpoint.receiveFrom(&endpoint, &source, text, sizeof text - 1);
    received.insert(std::string(text) + " from " + VornAddressToString(source.address, address));
  }
  return received;
}

int IsJoined(const char* interface, const char* group) {
  const std::string pattern = std::string(" | grep -qw ") + group;
  return std::system(("ip maddr show dev " + std::string(interface) + pattern).c_str()) == 0 ? 1
                                                                                             : 0;
}

// Pairs keep0-keep1 and drop0-drop1 between two namespaces of our own. `peer` joins on the far
// ends in the first; the thread stays in the second, with the near ends.
void NamespacesMake(VORNDGram& peer) {
  Run("ip link add keep1 type veth peer name keep0; ip link add drop1 type veth peer name drop0;"
      "ip addr add 10.77.1.2/24 dev keep1 && ip addr add 10.77.2.2/24 dev drop1 &&"
      "ip link set keep1 up && ip link set drop1 up");
  ASSERT_EQ(VORNDGramClass::NICInitialize() + peer.RecvMulticastAdd(FIRST_GROUP) +
                VORNDGramClass::NICDestroy(),
            3);
  const int far = open("/proc/thread-self/ns/net", O_RDONLY);
  ASSERT_EQ(unshare(CLONE_NEWNET), 0);
  const std::string near = " netns " + std::to_string(gettid());
  Run("nsenter --net=/proc/self/fd/" + std::to_string(far) + " sh -c 'ip link set keep0" + near +
      " && ip link set drop0" + near + "'");
  close(far);
  Run("ip addr add 10.77.1.1/24 dev keep0 && ip addr add 10.77.2.1/24 dev drop0 &&"
      "ip link set keep0 up && ip link set drop0 up");
}

void PruneAndWatch() {
  VORNDGram peer(1, 0, nullptr, -1);
  ASSERT_EQ(peer.RecvMulticastInitialize(PORT), PORT);
  NamespacesMake(peer);
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  {
    VORNMulticastProperties multicast{1, 1, 0};
    VORNDGramProperties properties;
    VornDGramPropertiesDefaultGet(&properties);
    VORNDGramMulticast earlier(&multicast, 0, &properties, -1);
    VORNDGram receiver(1, 0, nullptr, -1);
    ASSERT_EQ(receiver.RecvMulticastInitialize(PORT), PORT);
    Send(earlier, "before");
    EXPECT_EQ(Received(peer, 2),
              (std::multiset<std::string>{"before from 10.77.1.1", "before from 10.77.2.1"}));
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(FIRST_GROUP), 1);
    EXPECT_EQ(IsJoined("keep0", "239.1.2.3") + IsJoined("drop0", "239.1.2.3"), 2);

    VORNHostMask subnet(0x0A4D0100, 0xFFFFFF00);
    HTClass table;
    ASSERT_EQ(Insert(table, "10.77.1.0/ffffff00", &subnet), 1);
    EXPECT_EQ(VornSubnetMatch(&table, nullptr, 0, nullptr), 0);

    VORNDGramMulticast later(&multicast, 0, &properties, -1);
    Send(earlier, "earlier");
    Send(later, "later");
    // Sent last, so whatever the pruned interface had let through would come before it.
    VORNDGram marker(0, 0, nullptr, -1);
    ASSERT_EQ(marker.SendMulticastInitialize(&multicast, 0x0A4D0201), 1);
    Send(marker, "marker");
    EXPECT_EQ(Received(peer, 3),
              (std::multiset<std::string>{"earlier from 10.77.1.1", "later from 10.77.1.1",
                                          "marker from 10.77.2.1"}));
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(SECOND_GROUP), 1);
    EXPECT_EQ(IsJoined("keep0", "239.1.2.4") - IsJoined("drop0", "239.1.2.4"), 1);
  }
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

}  // namespace

TEST(SubnetPruning, PrunedInterfaceSendsNothingAndJoinsNothing) {
  int refusal = 0;
  std::thread([&refusal] {
    refusal = unshare(CLONE_NEWNET) == 0 ? 0 : errno;
    if (refusal == 0)
      PruneAndWatch();
  }).join();
  if (refusal != 0)
    GTEST_SKIP() << "no network namespace of our own: " << std::strerror(refusal);
}
