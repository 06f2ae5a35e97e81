#include "hosts/HostTable.h"

#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct CountingRemove : HTRemoveFunc {
  void Remove(const HTKeyClass*, void* data) override { ++*static_cast<int*>(data); }
};

struct Visitor : HTExecFunc {
  int LevelEntry(const HTKeyClass*, HTClass*, int) override { return entryResult; }
  int LevelExit(const HTKeyClass*, HTClass*, int) override { return exits++; }
  int Node(const HTKeyClass* key, HTNodeClass* node, int) override {
    seen.insert(key->text);
    return visit(key, node);
  }
  int Walk(HTClass& table, HTMatchFunc* match = nullptr) {
    return table.ForAllMatches(match, this, HTNodeClass::LOCK);
  }
  std::function<int(const HTKeyClass*, HTNodeClass*)> visit = [](auto*, auto*) { return 1; };
  std::set<std::string> seen;
  int entryResult = 1, exits = 0;
};

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
      const auto known = model.find(number);
      HTNodeClass* node = Find(table, text);
      ASSERT_EQ(node != nullptr, known != model.end());
      EXPECT_EQ(Insert(table, text, &removals[number], &remove), node == nullptr ? 1 : 0);
      if (node == nullptr) {
        model[number] = false;
        continue;
      }
      EXPECT_EQ(Find(table, text, HTClass::MARKED) != nullptr, known->second);
      EXPECT_EQ(Find(table, text, HTClass::IN_USE) == nullptr, known->second);
      node->Release(1);
      node->Retain(0);
      EXPECT_EQ(node->IsMarked() != 0, known->second);
      known->second = step % 3 == 0;
      known->second ? node->Release(0) : node->Retain(1);
      if (step % 4000 != 3)
        continue;
      for (const auto& entry : model)
        expected[entry.first] += entry.second ? 1 : 0;
      EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK),
                std::erase_if(model, [](const auto& entry) { return entry.second; }));
      EXPECT_EQ(removals, expected);
      Visitor all;
      EXPECT_EQ(all.Walk(table), 1);
      EXPECT_EQ(all.seen.size(), model.size());
    }
    for (const auto& entry : model)
      ++expected[entry.first];
  }
  EXPECT_EQ(removals, expected);
}

TEST(HTClass, VisitorsStopChooseAndMeddleOnlyAsTheyMay) {
  struct EvenMatch : HTMatchFunc {
    int Match(const HTKeyClass* key, HTNodeClass*) override { return *key->text % 2 == 0; }
  } even;
  HTClass table, other;
  for (const char* text : {"0", "1", "2", "3", "4"})
    ASSERT_EQ(Insert(table, text, nullptr), 1);
  Visitor stopped, refused, chosen, inner, meddler;
  stopped.visit = [&](auto*, auto*) { return stopped.seen.size() < 2 ? 1 : 0; };
  refused.entryResult = 0;
  meddler.visit = [&](const HTKeyClass* key, HTNodeClass* node) {
    EXPECT_EQ(Find(table, key->text), node);
    node->Release(0);
    EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 0);
    EXPECT_EQ(Insert(table, "more", nullptr), 0);
    EXPECT_EQ(Insert(other, key->text, nullptr), 1);
    EXPECT_EQ(inner.Walk(table), 1);
    return 1;
  };
  EXPECT_EQ(stopped.Walk(table) + refused.Walk(table), 0);
  EXPECT_EQ(table.ForAllMatches(nullptr, nullptr, HTNodeClass::LOCK), 0);
  EXPECT_EQ(chosen.Walk(table, &even) + meddler.Walk(table), 2);
  EXPECT_EQ(stopped.seen.size() + refused.seen.size(), 2U);
  EXPECT_EQ(chosen.seen, (std::set<std::string>{"0", "2", "4"}));
  EXPECT_EQ(inner.seen.size(), 5U);
  EXPECT_EQ(std::make_tuple(stopped.exits, refused.exits, inner.exits), std::make_tuple(1, 0, 5));
  EXPECT_EQ(Insert(table, "more", nullptr), 1);
  EXPECT_EQ(table.RemoveMarked(HTNodeClass::LOCK), 5);
}

TEST(HTClass, KeysThatCannotBeKeptAreRefused) {
  HTClass table;
  HTKeyClass none, text, other;
  text.hash = none.hash = 7;
  EXPECT_EQ(text.Set("text") + other.Set("text") + none.Set(nullptr), 2);
  EXPECT_EQ(std::make_tuple(text.kind, text.status, text.hash), std::make_tuple(0, 0, 0U));
  EXPECT_EQ(std::make_tuple(none.text, none.status, none.hash), std::make_tuple(nullptr, -1, 7U));
  other.kind = 1;
  const std::tuple<const HTKeyClass*, short, int> keys[] = {{nullptr, 32, 0}, {&none, 32, 0},
                                                            {&other, 32, 0},  {&text, 4, 0},
                                                            {&text, -1, 0},   {&text, 5, 1}};
  for (const auto& [key, size, kept] : keys) {
    EXPECT_EQ(table.InsertNode(key, nullptr, size, nullptr, HTNodeClass::LOCK), kept) << size;
    EXPECT_EQ(table.Find(key, EVERY_ENTRY, HTNodeClass::LOCK) != nullptr, kept == 1);
  }
}

TEST(HTClass, ThreadsInsertFindMarkWalkAndSweepTogether) {
  constexpr std::size_t THREADS = 3, EACH = 300;
  std::vector<int> removals(THREADS * EACH);
  CountingRemove remove;
  HTClass table;
  std::atomic<std::size_t> working{THREADS};
  const auto work = [&](std::size_t first) {
    for (std::size_t number = first; number < first + EACH; ++number) {
      EXPECT_EQ(Insert(table, std::to_string(number), &removals[number], &remove), 1);
      HTNodeClass* node = Find(table, std::to_string(number), HTClass::IN_USE);
      removals[number] = 100;  // seen by the sweep, without a lock
      if (number % 2 != 0)
        node->Release(0);
    }
    --working;
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < THREADS; ++i)
    threads.emplace_back(work, i * EACH);
  std::size_t swept = 0;
  for (bool last = false; !last;) {
    last = working == 0;
    swept += static_cast<std::size_t>(table.RemoveMarked(HTNodeClass::LOCK));
    Visitor visitor;
    EXPECT_EQ(visitor.Walk(table), 1);
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(swept, THREADS * EACH / 2);
  for (std::size_t number = 0; number < removals.size(); ++number)
    EXPECT_EQ(removals[number], number % 2 != 0 ? 101 : 100) << number;
}
