#include "hosts/HostTable.h"

#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct CountingRemove : HTRemoveFunc {
  void Remove(const HTKeyClass*, void* data) override { ++*static_cast<int*>(data); }
};

struct Visitor : HTExecFunc, HTMatchFunc {
  int LevelEntry(const HTKeyClass*, HTClass*, int) override { return 1; }
  int LevelExit(const HTKeyClass*, HTClass*, int) override { return 1; }
  int Match(const HTKeyClass*, HTNodeClass* node) override { return 1 - node->IsMarked(); }
  int Node(const HTKeyClass* key, HTNodeClass*, int) override {
    return seen.insert(key->text).second ? visit(key->text) : 0;
  }
  std::function<int(const char*)> visit = [](const char*) { return 1; };
  std::set<std::string> seen;
};

int Walk(HTClass& table, Visitor& visitor, HTMatchFunc* match = nullptr) {
  return table.ForAllMatches(match, &visitor, HTNodeClass::LOCK);
}

}  // namespace

TEST(HTClass, RandomOperationsAgreeWithAMapAndEveryEntryIsRemovedOnce) {
  std::vector<int> removals(3000), expected(removals.size());
  std::map<std::size_t, bool> model;  // number, marked
  CountingRemove remove;
  std::mt19937 random(1);
  {
    HTClass table;
    for (int step = 0; step < 40000; ++step) {
      const std::size_t number = random() % removals.size();
      const std::string text = std::to_string(number);
      HTNodeClass* node = Find(table, text);
      ASSERT_EQ(node != nullptr, model.contains(number));
      EXPECT_EQ(Insert(table, text, &removals[number], &remove), node == nullptr ? 1 : 0);
      bool& marked = model[number];
      if (node == nullptr)
        continue;
      node->Release(1);
      node->Retain(0);
      EXPECT_EQ(Find(table, text, HTClass::MARKED) != nullptr, marked);
      EXPECT_EQ(Find(table, text, HTClass::IN_USE) == nullptr, marked);
      marked = step % 3 == 0;
      marked ? node->Release(0) : node->Retain(1);
      if (step % 4000 != 3)
        continue;
      Visitor all, unmarked;
      EXPECT_EQ(Walk(table, all) + Walk(table, unmarked, &unmarked), 2);
      EXPECT_EQ(all.seen.size(), model.size());
      const auto isSwept = [&](const auto& entry) {
        expected[entry.first] += entry.second ? 1 : 0;
        return entry.second;
      };
      EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), std::erase_if(model, isSwept));
      EXPECT_EQ(unmarked.seen.size(), model.size());
    }
  }
  for (const auto& entry : model)
    ++expected[entry.first];
  EXPECT_EQ(removals, expected);
}

TEST(HTClass, AVisitorCannotChangeTheTableItWalks) {
  HTClass table;
  ASSERT_EQ(Insert(table, "1", nullptr) + Insert(table, "2", nullptr), 2);
  Visitor outer, inner;
  outer.visit = [&](const char* text) {
    Find(table, text)->Release(0);
    EXPECT_EQ(Insert(table, "more", nullptr) + table.RemoveMarked(HTNodeClass::LOCK), 0);
    return Walk(table, inner);
  };
  EXPECT_EQ(Walk(table, outer), 0);  // the second inner walk meets a text again, and stops
  EXPECT_EQ(Insert(table, "more", nullptr), 1);
  EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 2);
}

TEST(HTClass, KeysThatCannotBeKeptAreRefused) {
  HTKeyClass none, text, other;
  text.hash = none.hash = 7;
  EXPECT_EQ(text.Set("text") + other.Set("text") + none.Set(nullptr), 2);
  EXPECT_TRUE(text.status == 0 && text.hash == 0);
  EXPECT_TRUE(none.status == -1 && none.hash == 7 && none.text == nullptr);
  other.kind = 1;
  const std::pair<const HTKeyClass*, short> refused[] = {
      {nullptr, 32}, {&none, 32}, {&other, 32}, {&text, 4}, {&text, -1}};
  HTClass table;
  for (const auto& [key, size] : refused)
    EXPECT_EQ(table.InsertNode(key, nullptr, size, nullptr, HTNodeClass::LOCK), 0) << size;
  EXPECT_EQ(table.InsertNode(&text, nullptr, 5, nullptr, HTNodeClass::LOCK), 1);
  for (const HTKeyClass* key : {&none, &other})
    EXPECT_EQ(table.Find(key, EVERY_ENTRY, HTNodeClass::LOCK), nullptr);
}

TEST(HTClass, ThreadsInsertFindMarkAndSweepTogether) {
  std::vector<int> removals(900);
  CountingRemove remove;
  HTClass table;
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t number = next++; number < removals.size(); number = next++) {
      EXPECT_EQ(Insert(table, std::to_string(number), &removals[number], &remove), 1);
      HTNodeClass* node = Find(table, std::to_string(number));
      removals[number] = 100;  // seen by the sweep, without a lock
      node->Release(0);
    }
  };
  std::thread first(work), second(work);
  while (next < removals.size()) {
    table.RemoveMarked(HTNodeClass::LOCK);
    Visitor visitor;
    EXPECT_EQ(Walk(table, visitor), 1);
  }
  first.join(), second.join();
  table.RemoveMarked(HTNodeClass::LOCK);
  EXPECT_EQ(removals, std::vector<int>(removals.size(), 101));
}
