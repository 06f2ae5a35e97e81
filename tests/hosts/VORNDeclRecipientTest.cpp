#include "hosts/VORNDeclRecipient.h"

#include "support/Faults.h"
#include "support/HashTable.h"
#include "support/Results.h"

#include <climits>

namespace {

constexpr unsigned int ADDRESS = 0x0A000001;

struct Recipients : Scripted, HTRemoveFunc {
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
  void Expect(const char* text, int port, int count, bool isMarked) {
    const HTNodeClass* node = Find(table, text);
    ASSERT_NE(node, nullptr) << text;
    const auto& recipient = *static_cast<const VORNDeclRecipient*>(node->data);
    EXPECT_EQ(recipient.address, ADDRESS);
    EXPECT_EQ(recipient.port, port);
    EXPECT_EQ(recipient.count, count);
    EXPECT_EQ(recipient.IsValid(), count > 0);
    EXPECT_EQ(node->IsMarked(), isMarked ? 1 : 0);
  }
};

TEST_F(Recipients, AreCountedMarkedRevivedAndRemovedOnce) {
  const char* const find = "Find -32767, lock 1";
  const char* const insert = "Find -32767, lock 1; InsertNode 32, lock 1";
  const auto expect = [this](const char* what, bool isDeclared, int count, bool isMarked,
                             const char* calls) {
    SCOPED_TRACE(what);
    if (isDeclared)
      EXPECT_EQ(Add(ADDRESS, 9, 1), 1);
    else
      Withdraw("10.0.0.1:9");
    EXPECT_EQ(CallsDrain(), calls);
    Expect("10.0.0.1:9", 9, count, isMarked);
    CallsDrain();
  };
  expect("the first", true, 1, false, insert);
  expect("a second", true, 2, false, find);
  expect("one goes", false, 1, false, find);
  expect("the last goes", false, 0, true, find);
  expect("one returns", true, 1, false, find);
  expect("it goes again", false, 0, true, find);
  expect("one that never was goes", false, -1, true, find);
  expect("it comes, too late", true, 0, false, find);
  expect("it goes again, unmarked", false, -1, false, find);
  expect("the debt is paid", true, 0, false, find);
  expect("one comes", true, 1, false, find);
  expect("it goes, marked", false, 0, true, find);
  EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 1);
  EXPECT_EQ(removals, 1);
  Withdraw("10.0.0.1:9");
  EXPECT_EQ(Find(table, "10.0.0.1:9"), nullptr);
}

TEST_F(Recipients, AreAddedWholeOrNotAtAllAndWithoutPortInTheirTextKeepTheFirst) {
  EXPECT_EQ(FaultsTry([this] {
              EXPECT_EQ(Find(table, "10.0.0.1"), nullptr);
              return Add(ADDRESS, 7, 0);
            }),
            "memory, memory");
  EXPECT_EQ(Add(ADDRESS, 8, 0), 1);
  EXPECT_EQ(Add(ADDRESS, 8, 1), 1);
  Expect("10.0.0.1", 7, 2, false);
  Expect("10.0.0.1:8", 8, 1, false);
}

TEST_F(Recipients, ThatAreNoneAreRefused) {
  ResultsExpect(0, {{"no table", VornDeclRecipientAdd(nullptr, ADDRESS, 9, this, 1)},
                    {"no address", Add(0, 9, 0)},
                    {"no address but a port", Add(0, 9, 1)},
                    {"no port", Add(ADDRESS, 0, 0)},
                    {"port 0 in the text", Add(ADDRESS, 0, 1)}});
  for (const char* text : {"10.0.0.1", "10.0.0.1:0", "0.0.0.0", "0.0.0.0:9"})
    EXPECT_EQ(Find(table, text), nullptr) << text;
  VornDeclRecipientMarkForRemoval(nullptr, nullptr);
  VornDeclRecipientMarkForRemoval(&table, nullptr);
  // The longest text there is, with a count at either end.
  const char* const text = "255.255.255.255:-2147483648";
  EXPECT_EQ(Add(~0U, INT_MIN, 1), 1);
  auto* recipient = static_cast<VORNDeclRecipient*>(Find(table, text)->data);
  recipient->count = INT_MAX;
  EXPECT_EQ(Add(~0U, INT_MIN, 1), 0);
  EXPECT_EQ(recipient->count, INT_MAX);
  recipient->count = INT_MIN;
  Withdraw(text);
  EXPECT_EQ(recipient->count, INT_MIN);
  ASSERT_EQ(Insert(table, "10.0.0.1", nullptr), 1);  // holds no recipient
  EXPECT_EQ(Add(ADDRESS, 9, 0), 0);
  Withdraw("10.0.0.1");
}

}  // namespace
