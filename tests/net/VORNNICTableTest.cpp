#include "net/miscIPUtils.h"
#include "support/ScriptedInterfaces.h"

namespace {

using InterfaceTableTest = Scripted;
using Class = VORNDGramClass;

constexpr unsigned int DOWN = 0x0A000001;  // an interface of the first list only

TEST_F(InterfaceTableTest, LivesFromFirstUserToLastAndIsReadOnce) {
  struct Row {
    const char* text;
    int (*operation)();
    int result, users, records, isCapable;
    unsigned int downMapped;
  };
  const Row rows[] = {
      {"without memory", Class::NICInitialize, 0, -3, 0, 0, DOWN},
      {"first user", Class::NICInitialize, 1, 1, 2, 0, VORN_LOOPBACK_ADDRESS},
      {"second user", Class::NICInitialize, 1, 2, 2, 0, VORN_LOOPBACK_ADDRESS},
      {"one leaves", Class::NICDestroy, 1, 1, 2, 0, VORN_LOOPBACK_ADDRESS},
      {"the last leaves", Class::NICDestroy, 1, 0, 0, 0, DOWN},
      {"a user of the second list", Class::NICInitialize, 1, 1, 1, 1, DOWN},
      {"leaves", Class::NICDestroy, 1, 0, 0, 0, DOWN},
  };
  Class::NICReferenceCount = -3;
  InterfacesScript({{VORN_LOOPBACK_ADDRESS, LOOP | UP | CAST}, {DOWN, CAST}});
  System().failingAllocation = 1;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(row.operation(), row.result);
    EXPECT_EQ(Class::NICReferenceCount, row.users);
    EXPECT_EQ(VORN_NIC_COUNT, row.records);
    EXPECT_EQ(Class::NICIsValid(), row.records > 0 ? 1 : 0);
    EXPECT_EQ(Class::NICIsMulticastSupported(), row.isCapable);
    EXPECT_EQ(Class::NICHostIPMap(DOWN), row.downMapped);
    EXPECT_EQ(Class::NICIsThisNodeIP(VORN_LOOPBACK_ADDRESS), 1);
    if (row.users > 0)
      InterfacesScript({{0x0A000002, UP | CAST}});
  }
  EXPECT_EQ(Script().threadLocks, 7);
  EXPECT_EQ(Script().threadUnlocks, 7);
  MessagesExpect({{1, "VORN: can't destroy NIC list, refcount already 0 (too many calls to "
                      "VornAppDestroy?)\n"}},
                 [] { EXPECT_EQ(Class::NICDestroy(), 0); });
}

}  // namespace
