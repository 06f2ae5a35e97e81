#include "support/Emulator.h"
#include "support/Namespace.h"

#include <gtest/gtest.h>

namespace {

// All on one port of one host. What an endpoint heard of the first group would come before what it
// hears of the second one.
void EachEndpointHearsItsOwnGroups() {
  Run("ip link add keep0 type veth peer name keep1 && ip addr add 10.77.1.1/24 dev keep0 &&"
      "ip link set keep0 up && ip link set keep1 up");
  ASSERT_EQ(VORNDGramClass::NICInitialize(), 1);
  {
    VORNDGram joined(1, 0, nullptr, -1), left(1, 0, nullptr, -1), stranger(1, 0, nullptr, -1);
    struct Row {
      const char* what;
      VORNDGram& endpoint;
      unsigned int group;
      const char* hears;
    };
    const Row rows[] = {
        {"joined the first group", joined, FIRST_GROUP, "first from 10.77.1.1"},
        {"left the first group", left, SECOND_GROUP, "second from 10.77.1.1"},
        {"never joined the first group", stranger, SECOND_GROUP, "second from 10.77.1.1"},
    };
    for (const Row& row : rows) {
      ASSERT_EQ(row.endpoint.RecvMulticastInitialize(NAMESPACE_PORT), NAMESPACE_PORT) << row.what;
      ASSERT_EQ(row.endpoint.RecvMulticastGroupJoin(row.group), 1) << row.what;
    }
    ASSERT_EQ(left.RecvMulticastGroupJoin(FIRST_GROUP), 1);
    ASSERT_EQ(left.RecvMulticastGroupLeave(FIRST_GROUP), 1);
    VORNMulticastProperties multicast{1, 1, 1};  // loops back to this host
    VORNDGramMulticast sender(&multicast, 0, nullptr, -1);
    Send(sender, "first", FIRST_GROUP);
    Send(sender, "second", SECOND_GROUP);
    for (const Row& row : rows)
      EXPECT_EQ(Received(row.endpoint, 1), std::multiset<std::string>{row.hears}) << row.what;
  }
  EXPECT_EQ(VORNDGramClass::NICDestroy(), 1);
}

}  // namespace

TEST(Groups, AreHeardByTheEndpointsThatJoined) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  NamespaceRun(EachEndpointHearsItsOwnGroups);
}
