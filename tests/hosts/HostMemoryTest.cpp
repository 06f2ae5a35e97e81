#include "hosts/HostTable.h"
#include "hosts/VORNDeclRecipient.h"
#include "support/ScriptedSystem.h"

#include <gtest/gtest.h>

// Each allocation of a declaration fails in turn; then it succeeds.
TEST(HostMemory, DeclarationWithoutMemoryIsRefusedAndLeavesNothing) {
  HTClass table;
  int attempts = 0;
  do {
    SystemReset();
    EXPECT_EQ(Find(table, "10.0.0.1"), nullptr);
    System().failingAllocation = ++attempts;
  } while (VornDeclRecipientAdd(&table, 0x0A000001, 7400, nullptr, 0) == 0 && attempts < 9);
  SystemReset();
  EXPECT_EQ(attempts, 3);
  delete static_cast<VORNDeclRecipient*>(Find(table, "10.0.0.1")->data);
}
