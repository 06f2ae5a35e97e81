#include "hosts/VORNHostMask.h"
#include "support/Emulator.h"
#include "support/HashTable.h"
#include "support/Namespace.h"

namespace {

using Interfaces = std::set<std::string>;

// The near end of one pair has two addresses: two records of the table for one device.
void EveryInterfaceTakesPartUntilItIsPruned() {
  VORNDGram peer(1, 0, nullptr, -1);
  ASSERT_EQ(peer.RecvMulticastInitialize(NAMESPACE_PORT), NAMESPACE_PORT);
  NamespacesMake(peer);
  Run("ip addr add 10.77.1.9/24 dev keep0 && ip link set lo up");
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  EXPECT_EQ(VORN_NIC_COUNT, 4);
  {
    VORNDGram receiver(1, 0, nullptr, -1);
    ASSERT_EQ(receiver.RecvMulticastGroupJoin(FIRST_GROUP), 1);
    EXPECT_EQ(JoinedTo("239.1.2.3"), (Interfaces{"drop0", "keep0"}));
    EXPECT_EQ(receiver.RecvMulticastGroupLeave(FIRST_GROUP), 1);
    EXPECT_EQ(JoinedTo("239.1.2.3"), Interfaces());
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(FIRST_GROUP), 1);
    VORNMulticastProperties multicast{1, 1, 0};
    VORNDGramMulticast sender(&multicast, 0, nullptr, -1);
    Send(sender, "once");
    VORNDGram marker(0, 0, nullptr, -1);
    ASSERT_EQ(marker.SendMulticastInitialize(&multicast, 0x0A4D0201), 1);
    Send(marker, "end");
    EXPECT_EQ(Received(peer, 4),
              (std::multiset<std::string>{"once from 10.77.1.1", "once from 10.77.1.9",
                                          "once from 10.77.2.1", "end from 10.77.2.1"}));
    // What a pruned interface let through would come before the end.
    VORNHostMask subnet(0x0A4D0100, 0xFFFFFF00);
    HTClass table;
    ASSERT_EQ(Insert(table, "10.77.1.0/ffffff00", &subnet), 1);
    EXPECT_EQ(VornSubnetMatch(&table, nullptr, 0, nullptr), 0);
    Send(sender, "pruned");
    Send(marker, "end");
    EXPECT_EQ(Received(peer, 3),
              (std::multiset<std::string>{"pruned from 10.77.1.1", "pruned from 10.77.1.9",
                                          "end from 10.77.2.1"}));
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(SECOND_GROUP), 1);
    EXPECT_EQ(JoinedTo("239.1.2.4"), Interfaces{"keep0"});
  }
  EXPECT_EQ(JoinedTo("239.1.2.3"), Interfaces());
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

TEST(System, EveryInterfaceTakesPartInMulticastUntilItIsPruned) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  NamespaceRun(EveryInterfaceTakesPartUntilItIsPruned);
}

}  // namespace
