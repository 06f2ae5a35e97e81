#include "hosts/VORNHostMask.h"
#include "support/Emulator.h"
#include "support/HashTable.h"
#include "support/Namespace.h"

#include <gtest/gtest.h>

namespace {

void PruneAndWatch() {
  VORNDGram peer(1, 0, nullptr, -1);
  ASSERT_EQ(peer.RecvMulticastInitialize(NAMESPACE_PORT), NAMESPACE_PORT);
  NamespacesMake(peer);
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  {
    VORNMulticastProperties multicast{1, 1, 0};
    VORNDGramProperties properties;
    VornDGramPropertiesDefaultGet(&properties);
    VORNDGramMulticast sender(&multicast, 0, &properties, -1);
    VORNDGram receiver(1, 0, nullptr, -1), marker(0, 0, nullptr, -1);
    ASSERT_EQ(receiver.RecvMulticastInitialize(NAMESPACE_PORT), NAMESPACE_PORT);
    ASSERT_EQ(marker.SendMulticastInitialize(&multicast, 0x0A4D0201), 1);
    VORNHostMask subnet(0x0A4D0100, 0xFFFFFF00);
    HTClass table;
    ASSERT_EQ(Insert(table, "10.77.1.0/ffffff00", &subnet), 1);
    EXPECT_EQ(VornSubnetMatch(&table, nullptr, 0, nullptr), 0);
    Send(sender, "pruned");
    // Sent last, so whatever the pruned interface had let through would come before it.
    Send(marker, "marker");
    EXPECT_EQ(Received(peer, 2),
              (std::multiset<std::string>{"pruned from 10.77.1.1", "marker from 10.77.2.1"}));
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(SECOND_GROUP), 1);
    EXPECT_EQ(JoinedTo("239.1.2.4"), std::set<std::string>{"keep0"});
  }
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

}  // namespace

TEST(SubnetPruning, PrunedInterfaceSendsNothingAndJoinsNothing) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  NamespaceRun(PruneAndWatch);
}
