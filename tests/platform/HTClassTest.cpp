#include "support/HashTable.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Each entry's data counts how often it is in the table.
struct CountingRemove : HTRemoveFunc {
  void Remove(const HTKeyClass*, void* data) override { --*static_cast<int*>(data); }
};

struct Visitor : HTExecFunc, HTMatchFunc {
  int LevelEntry(const HTKeyClass*, HTClass*, int level) override { return enters ? 1 : level; }
  int LevelExit(const HTKeyClass*, HTClass*, int) override { return ++exits; }
  int Match(const HTKeyClass*, HTNodeClass* node) override { return 1 - node->IsMarked(); }
  int Node(const HTKeyClass* key, HTNodeClass*, int level) override {
    ++nodes;
    return level == 0 ? visit(key->text) : 0;
  }
  std::function<int(const char*)> visit = [](const char*) { return 1; };
  std::size_t nodes = 0;
  int exits = 0;
  bool enters = true;
};

void Fill(HTClass& table, int count) {
  for (int i = 0; i < count; ++i)
    ASSERT_EQ(Insert(table, std::to_string(i), nullptr), 1);
}

void Change(HTClass& table, int times) {
  for (int i = 0; i < times; ++i) {
    EXPECT_EQ(Insert(table, "more", nullptr), 1) << i;
    Find(table, "more")->Release(0);
    EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 1) << i;
  }
}

int Walk(HTClass& table, Visitor& visitor, HTMatchFunc* match = nullptr) {
  return table.ForAllMatches(match, &visitor, HTNodeClass::LOCK);
}

}  // namespace

TEST(HTClass, SweepsTheMarkedEntriesOfManyAndGivesEachBackOnce) {
  constexpr int COUNT = 3000;
  std::vector<int> uses(COUNT, 1), left(COUNT);
  CountingRemove remove;
  {
    HTClass table;
    for (std::size_t i = 0; i < COUNT; ++i) {
      const std::string text = std::to_string(i);
      ASSERT_EQ(Insert(table, text, &uses[i], &remove), 1) << i;
      left[i] = i % 3 == 0 ? 0 : 1;
      Find(table, text)->Release(left[i]);
      Find(table, text)->Retain(0);
    }
    Visitor all, unmarked;
    all.visit = [&](const char* known) {  // may find, but change nothing
      EXPECT_EQ(Insert(table, "more", nullptr), 0);
      EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 0);
      return Find(table, known) != nullptr ? 1 : 0;
    };
    EXPECT_EQ(Walk(table, all), 1);
    EXPECT_EQ(Walk(table, unmarked, &unmarked), 1);
    EXPECT_EQ(all.nodes, 3000U);
    EXPECT_EQ(unmarked.nodes, 2000U);
    EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 1000);
    EXPECT_EQ(uses, left);
    for (std::size_t i = 0; i < COUNT; ++i)
      EXPECT_EQ(Find(table, std::to_string(i)) != nullptr, left[i] == 1) << i;
  }
  EXPECT_EQ(uses, std::vector<int>(COUNT));
}

TEST(HTClass, KeysThatCannotBeKeptAreRefused) {
  HTKeyClass none, text, other;
  text.hash = none.hash = 7;
  EXPECT_EQ(text.Set("text"), 1);
  EXPECT_EQ(other.Set("text"), 1);
  none.status = 0;  // as if it had had a text
  EXPECT_EQ(none.Set(nullptr), 0);
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.hash, 0U);
  EXPECT_EQ(none.status, -1);
  EXPECT_EQ(none.hash, 7U);
  other.kind = 1;
  HTClass table;
  EXPECT_EQ(table.InsertNode(nullptr, nullptr, 32, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(table.InsertNode(&none, nullptr, 32, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(table.InsertNode(&other, nullptr, 32, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(table.InsertNode(&text, nullptr, 4, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(table.InsertNode(&text, nullptr, -1, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(table.InsertNode(&text, nullptr, 5, nullptr, HTNodeClass::LOCK), 1);
  EXPECT_EQ(Insert(table, "costarring", nullptr), 1);
  EXPECT_EQ(Find(table, "liquid"), nullptr) << "of the same hash";
  EXPECT_EQ(table.ForAllMatches(nullptr, nullptr, HTNodeClass::LOCK), 0) << "without a visitor";
  Visitor visitor;
  visitor.enters = false;
  EXPECT_EQ(Walk(table, visitor), 0);
  EXPECT_EQ(visitor.nodes, 0U);
  visitor.enters = true;
  visitor.visit = [](const char*) { return 0; };
  EXPECT_EQ(Walk(table, visitor), 0);
  EXPECT_EQ(visitor.exits, 1) << "from the walk that was stopped, not from the one refused";
}

TEST(HTClass, ChangesAreMadeWhileWalksOverlapWithoutPause) {
  HTClass table;
  Fill(table, 1000);
  std::atomic<bool> stop = false;
  std::vector<std::jthread> walkers(4);
  for (std::jthread& walker : walkers)
    walker = std::jthread([&] {
      Visitor visitor;
      visitor.visit = [&](const char* text) { return Find(table, text) != nullptr ? 1 : 0; };
      while (!stop)
        EXPECT_EQ(Walk(table, visitor), 1);
    });
  const auto changes = std::async(std::launch::async, Change, std::ref(table), 20);
  EXPECT_EQ(changes.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  stop = true;
}

// Two threads walk two tables one within the other, each in its own order, while others wait to
// change them. If a walk within waited for those, this would never end.
TEST(HTClass, WalksWithinWalksOfAnotherTableGoOn) {
  HTClass tables[2];
  for (HTClass& table : tables)
    Fill(table, 20);
  const auto walk = [&tables](HTClass& outer) {
    HTClass& inner = tables[&outer == tables ? 1 : 0];
    Visitor visitor;
    visitor.visit = [&outer, &inner](const char* text) {
      Visitor within;
      within.visit = [&outer, text](const char*) {
        EXPECT_EQ(Insert(outer, "refused", nullptr), 0);
        return Find(outer, text) != nullptr ? 1 : 0;
      };
      return Walk(inner, within);
    };
    for (int i = 0; i < 300; ++i)
      EXPECT_EQ(Walk(outer, visitor), 1) << i;
  };
  std::vector<std::jthread> threads;
  for (HTClass& table : tables) {
    threads.emplace_back(walk, std::ref(table));
    threads.emplace_back(Change, std::ref(table), 300);
  }
}

TEST(HTClass, WalksThatEndByAnExceptionLeaveTheTableFree) {
  HTClass table;
  Fill(table, 3);
  Visitor visitor;
  visitor.visit = [](const char*) -> int { throw 7; };
  EXPECT_THROW(Walk(table, visitor), int);
  EXPECT_EQ(visitor.nodes, 1U);
  EXPECT_EQ(Insert(table, "more", nullptr), 1);
  std::thread([&table] { EXPECT_EQ(Insert(table, "and more", nullptr), 1); }).join();
}

// The table is free meanwhile: each function puts a new entry in the place of the one it removes.
TEST(HTClass, RemovalFunctionsUseTheirTableThrowAndGetEveryEntryOnce) {
  struct : CountingRemove {
    HTClass* table = nullptr;
    void Remove(const HTKeyClass* key, void* data) override {
      CountingRemove::Remove(key, data);
      if (table != nullptr) {
        EXPECT_EQ(Insert(*table, key->text, nullptr), 1);
      }
      throw *static_cast<int*>(data);
    }
  } remove;
  std::vector<int> uses(4, 1);
  {
    HTClass table;
    for (std::size_t i = 0; i < uses.size(); ++i)
      ASSERT_EQ(Insert(table, std::to_string(i), &uses[i], &remove), 1) << i;
    for (const char* marked : {"0", "1", "2"})
      Find(table, marked)->Release(0);
    remove.table = &table;
    EXPECT_THROW(table.RemoveMarked(HTNodeClass::LOCK), int);
    remove.table = nullptr;
    EXPECT_EQ(uses, (std::vector<int>{0, 0, 0, 1}));
    EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 0);
    for (const char* present : {"0", "1", "2", "3"})
      EXPECT_NE(Find(table, present), nullptr) << present;
  }
  EXPECT_EQ(uses, std::vector<int>(4));
}
