#include "support/HashTable.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Visitor : HTExecFunc {
  int LevelEntry(const HTKeyClass*, HTClass*, int) override { return 1; }
  int LevelExit(const HTKeyClass*, HTClass*, int) override { return 1; }
  int Node(const HTKeyClass* key, HTNodeClass*, int level) override {
    return level == 0 ? visit(key->text) : 0;
  }
  std::function<int(const char*)> visit;
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

int Walk(HTClass& table, Visitor& visitor) {
  return table.ForAllMatches(nullptr, &visitor, HTNodeClass::LOCK);
}

}  // namespace

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

// The sanitizer at the end of the process sees what is not freed.
TEST(HTClass, RemovalFunctionsThatThrowLeaveNothingBehind) {
  struct : HTRemoveFunc {
    void Remove(const HTKeyClass*, void*) override { throw 7; }
  } remove;
  HTClass table;
  for (const char* text : {"first", "second"}) {
    EXPECT_EQ(Insert(table, text, nullptr, &remove), 1) << text;
    Find(table, text)->Release(0);
  }
  EXPECT_THROW(table.RemoveMarked(HTNodeClass::LOCK), int);
}

TEST(HTClass, RefusesANullKeyAndTellsTheOthersOfOneHashApart) {
  HTClass table;
  EXPECT_EQ(table.InsertNode(nullptr, nullptr, 32, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(Insert(table, "costarring", nullptr), 1);
  EXPECT_EQ(Find(table, "liquid"), nullptr) << "of the same hash";
}

TEST(HTKeyClass, KeepsItsHashWithoutAText) {
  HTKeyClass none, text;
  EXPECT_EQ(none.status, -1);
  text.hash = none.hash = 7;
  none.status = 0;  // as if it had had a text
  EXPECT_EQ(text.Set("text"), 1);
  EXPECT_EQ(none.Set(nullptr), 0);
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.hash, 0U);
  EXPECT_EQ(none.status, -1);
  EXPECT_EQ(none.hash, 7U);
}
