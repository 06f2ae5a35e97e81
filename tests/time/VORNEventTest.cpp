#include "support/ScriptedLayer.h"
#include "support/ScriptedSystem.h"
#include "time/VORNEventManager.h"
#include <gtest/gtest.h>
TEST(VORNEventManager, WithoutMemoryRefuses) {
  SystemReset();
  System().failingAllocation = 1;
  VORNEventManager manager(4, 5, 0);
  EXPECT_EQ(manager.IsValid(), 0);
  EXPECT_EQ(System().allocations, 1);
}
