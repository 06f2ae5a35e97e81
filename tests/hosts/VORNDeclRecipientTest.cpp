#include "hosts/VORNDeclRecipient.h"

#include "hosts/HostTable.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

constexpr unsigned int ADDRESS = 0x0A000001;

struct DeletingRemove : HTRemoveFunc {
  void Remove(const HTKeyClass*, void* data) override {
    ++removals;
    delete static_cast<VORNDeclRecipient*>(data);
  }
  int removals = 0;
};

struct Recipients : testing::Test {
  DeletingRemove remove;
  HTClass table;

  int Add(unsigned int address, int port, int withPort) {
    return VornDeclRecipientAdd(&table, address, port, &remove, withPort);
  }
  void Withdraw(const char* text) {
    HTKeyClass key;
    key.Set(text);
    VornDeclRecipientMarkForRemoval(&table, &key);
  }
  // Count of the entry with `text`, and "m" when it is marked.
  std::string State(const char* text) {
    const HTNodeClass* node = Find(table, text);
    if (node == nullptr)
      return "none";
    const auto* recipient = static_cast<const VORNDeclRecipient*>(node->data);
    EXPECT_EQ(recipient->IsValid(), recipient->count > 0);
    return std::to_string(recipient->count) + (node->IsMarked() != 0 ? "m" : "");
  }
};

}  // namespace

TEST_F(Recipients, AreCountedMarkedRevivedAndRemovedOnce) {
  const char* const text = "10.0.0.1:7400";
  std::string states;
  for (const char step : std::string("++--+--++-")) {
    if (step == '-')
      Withdraw(text);
    else
      EXPECT_EQ(Add(ADDRESS, 7400, 1), 1);
    states += State(text) + ' ';
  }
  EXPECT_EQ(states, "1 2 1 0m 1 0m -1m 0 1 0m ");
  EXPECT_EQ(remove.removals, 0);
  EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 1);
  EXPECT_EQ(remove.removals, 1);
  Withdraw(text);
  EXPECT_EQ(State(text), "none");
  EXPECT_EQ(Add(ADDRESS, 7400, 0) + Add(ADDRESS, 7401, 0) + Add(ADDRESS, 7401, 1), 3);
  EXPECT_EQ(State("10.0.0.1") + State("10.0.0.1:7401"), "21");
  EXPECT_EQ(static_cast<VORNDeclRecipient*>(Find(table, "10.0.0.1")->data)->port, 7400);
}

TEST_F(Recipients, ThatAreNoneAreRefused) {
  EXPECT_EQ(VornDeclRecipientAdd(nullptr, ADDRESS, 7400, &remove, 1), 0);
  for (const int withPort : {0, 1})
    EXPECT_EQ(Add(0, 7400, withPort) + Add(ADDRESS, 0, withPort) + Add(0, 0, withPort), 0);
  for (const char* text : {"10.0.0.1", "10.0.0.1:0", "0.0.0.0", "0.0.0.0:7400"})
    EXPECT_EQ(State(text), "none");
  VornDeclRecipientMarkForRemoval(nullptr, nullptr);
  VornDeclRecipientMarkForRemoval(&table, nullptr);
  Withdraw(nullptr);
  // The longest text there is, a count at either end, and an entry that holds no recipient.
  const char* const text = "255.255.255.255:-2147483648";
  EXPECT_EQ(Add(0xFFFFFFFFU, INT_MIN, 1), 1);
  auto* recipient = static_cast<VORNDeclRecipient*>(Find(table, text)->data);
  recipient->count = INT_MAX;
  EXPECT_EQ(Add(0xFFFFFFFFU, INT_MIN, 1), 0);
  recipient->count = INT_MIN;
  Withdraw(text);
  EXPECT_EQ(recipient->count, INT_MIN);
  ASSERT_EQ(Insert(table, "10.0.0.1", nullptr), 1);
  EXPECT_EQ(Add(ADDRESS, 7400, 0), 0);
  Withdraw("10.0.0.1");
  EXPECT_EQ(Find(table, "10.0.0.1")->IsMarked(), 0);
}
