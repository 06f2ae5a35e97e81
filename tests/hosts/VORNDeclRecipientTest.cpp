#include "hosts/VORNDeclRecipient.h"

#include "support/HashTable.h"
#include "support/ScriptedSystem.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

constexpr unsigned int ADDRESS = 0x0A000001;

struct Recipients : testing::Test, HTRemoveFunc {
  HTClass table;
  int removals = 0;

  void Remove(const HTKeyClass*, void* data) override {
    ++removals;
    delete static_cast<VORNDeclRecipient*>(data);
  }
  int Add(unsigned int address, int port, int withPort) {
    return VornDeclRecipientAdd(&table, address, port, this, withPort);
  }
  void Withdraw(const char* text) {
    HTKeyClass key;
    key.Set(text);
    VornDeclRecipientMarkForRemoval(&table, &key);
  }
  // Port and count of the entry with `text`, and "m" when it is marked.
  std::string State(const char* text) {
    const HTNodeClass* node = Find(table, text);
    if (node == nullptr)
      return "none";
    const auto& recipient = *static_cast<const VORNDeclRecipient*>(node->data);
    EXPECT_EQ(recipient.IsValid(), recipient.count > 0);
    return std::to_string(recipient.port) + 'x' + std::to_string(recipient.count) +
           (node->IsMarked() != 0 ? "m" : "");
  }
};

}  // namespace

TEST_F(Recipients, AreCountedMarkedRevivedAndRemovedOnce) {
  std::string states;
  for (const char step : std::string("++--+--+-++-")) {
    if (step == '-')
      Withdraw("10.0.0.1:9");
    else
      EXPECT_EQ(Add(ADDRESS, 9, 1), 1);
    states += State("10.0.0.1:9") + ' ';
  }
  EXPECT_EQ(states, "9x1 9x2 9x1 9x0m 9x1 9x0m 9x-1m 9x0 9x-1 9x0 9x1 9x0m ");
  EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 1);
  EXPECT_EQ(removals, 1);
  Withdraw("10.0.0.1:9");
  EXPECT_EQ(Add(ADDRESS, 7, 0) + Add(ADDRESS, 8, 0) + Add(ADDRESS, 8, 1), 3);
  EXPECT_EQ(State("10.0.0.1") + State("10.0.0.1:8") + State("10.0.0.1:9"), "7x28x1none");
}

TEST_F(Recipients, ThatAreNoneAreRefused) {
  for (const int withPort : {0, 1})
    EXPECT_EQ(Add(0, 9, withPort) + Add(ADDRESS, 0, withPort), 0);
  for (const char* text : {"10.0.0.1", "10.0.0.1:0", "0.0.0.0", "0.0.0.0:9"})
    EXPECT_EQ(State(text), "none");
  EXPECT_EQ(VornDeclRecipientAdd(nullptr, ADDRESS, 9, this, 1), 0);
  VornDeclRecipientMarkForRemoval(nullptr, nullptr);
  VornDeclRecipientMarkForRemoval(&table, nullptr);
  // The longest text there is, a count at either end, and an entry that holds no recipient.
  const char* const text = "255.255.255.255:-2147483648";
  EXPECT_EQ(Add(~0U, INT_MIN, 1), 1);
  auto* recipient = static_cast<VORNDeclRecipient*>(Find(table, text)->data);
  recipient->count = INT_MAX;
  EXPECT_EQ(Add(~0U, INT_MIN, 1), 0);
  recipient->count = INT_MIN;
  Withdraw(text);
  EXPECT_EQ(recipient->count, INT_MIN);
  EXPECT_EQ(Insert(table, "10.0.0.1", nullptr) + Add(ADDRESS, 9, 0), 1);
  Withdraw("10.0.0.1");
}

// Each allocation of a declaration fails in turn; then it succeeds.
TEST_F(Recipients, WithoutMemoryAreRefusedAndLeaveNothing) {
  int attempts = 0;
  do {
    SystemReset();
    EXPECT_EQ(State("10.0.0.1"), "none");
    System().failingAllocation = ++attempts;
  } while (Add(ADDRESS, 9, 0) == 0 && attempts < 9);
  SystemReset();
  EXPECT_EQ(attempts, 3);
}
