#include "support/Emulator.h"
#include "support/Namespace.h"

#include <gtest/gtest.h>

namespace {

int JoinedCount() { return IsJoined("keep0", "239.1.2.3") + IsJoined("drop0", "239.1.2.3"); }

// The near end of one pair has two addresses: two records of the table for one device.
void EveryInterfaceTakesPart() {
  VORNDGram peer(1, 0, nullptr, -1);
  ASSERT_EQ(peer.RecvMulticastInitialize(NAMESPACE_PORT), NAMESPACE_PORT);
  NamespacesMake(peer);
  Run("ip addr add 10.77.1.9/24 dev keep0 && ip link set lo up");
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  EXPECT_EQ(VORN_NIC_COUNT, 4);
  {
    VORNDGram receiver(1, 0, nullptr, -1);
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(FIRST_GROUP) +
                  receiver.RecvMulticastGroupJoin(FIRST_GROUP),
              2);
    EXPECT_EQ(JoinedCount() - IsJoined("lo", "239.1.2.3"), 2);
    EXPECT_EQ(receiver.RecvMulticastGroupLeave(FIRST_GROUP) + JoinedCount(), 3);
    EXPECT_EQ(receiver.RecvMulticastGroupLeave(FIRST_GROUP) + JoinedCount(), 1);
    EXPECT_EQ(receiver.RecvMulticastGroupJoin(FIRST_GROUP) + JoinedCount(), 3);
    VORNMulticastProperties multicast{1, 1, 0};
    VORNDGramMulticast sender(&multicast, 0, nullptr, -1);
    Send(sender, "once");
    VORNDGram marker(0, 0, nullptr, -1);
    ASSERT_EQ(marker.SendMulticastInitialize(&multicast, 0x0A4D0201), 1);
    Send(marker, "end");
    EXPECT_EQ(Received(peer, 4),
              (std::multiset<std::string>{"once from 10.77.1.1", "once from 10.77.1.9",
                                          "once from 10.77.2.1", "end from 10.77.2.1"}));
  }
  EXPECT_EQ(JoinedCount(), 0);
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

void TableIsFull() {
  Run("ip link set lo up && for i in $(seq 1 40); do ip addr add 10.78.0.$i/24 dev lo; done");
  ASSERT_EQ(VORNDGramClass::NICInitialize() + VORN_NIC_COUNT, 33);
  for (unsigned int i = 1; i < 32; ++i)
    EXPECT_EQ(VORN_NIC[i].address, 0x0A4E0000 + i);
  EXPECT_EQ(VORNDGramClass::NICIsMulticastSupported(), 0);
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

TEST(System, EveryInterfaceTakesPartInMulticast) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  NamespaceRun(EveryInterfaceTakesPart);
}

TEST(System, TableHoldsTheFirst32Interfaces) { NamespaceRun(TableIsFull); }

}  // namespace
