// What the headers promise of lists and tables to programs, which own the tables: they fill them,
// sweep them and visit what they choose.

#include "Clause.h"

#include "platform/DequeVoid.h"
#include "platform/HTClass.h"

#include <cstring>

namespace {

bool ListIgnoresNull() {
  DequeVoid list;
  DequeVoidNode node;
  list.InsertNodeAfter(nullptr, &node);
  list.InsertNodeAfter(nullptr, nullptr);
  list.InsertNodeBefore(nullptr, nullptr);
  ClauseRequire("RemoveNode", list.RemoveNode(nullptr) == nullptr);
  ClauseRequire("the count", list.count == 1);
  return true;
}

// The nodes in their order, and no others.
void NodesRequire(const DequeVoid& list, const DequeVoidNode (&nodes)[3]) {
  ClauseRequire("the first node", list.first == &nodes[0]);
  ClauseRequire("the last node", list.last == &nodes[2]);
  ClauseRequire("the count", list.count == 3);
  for (int i = 0; i < 3; ++i) {
    const std::string row = " of node " + std::to_string(i) + " of 0 to 2";
    ClauseRequire("previous" + row, nodes[i].previous == (i > 0 ? &nodes[i - 1] : nullptr));
    ClauseRequire("next" + row, nodes[i].next == (i < 2 ? &nodes[i + 1] : nullptr));
  }
}

bool NodesAreTakenAfter() {
  DequeVoid list;
  DequeVoidNode nodes[3];
  list.InsertNodeAfter(nullptr, &nodes[0]);
  list.InsertNodeAfter(nullptr, &nodes[2]);
  list.InsertNodeAfter(&nodes[0], &nodes[1]);
  NodesRequire(list, nodes);
  return true;
}

bool NodesAreTakenBefore() {
  DequeVoid list;
  DequeVoidNode nodes[3];
  list.InsertNodeBefore(nullptr, &nodes[2]);
  list.InsertNodeBefore(nullptr, &nodes[0]);
  list.InsertNodeBefore(&nodes[2], &nodes[1]);
  NodesRequire(list, nodes);
  return true;
}

bool RemovedNodeHasNoLinks() {
  DequeVoid list;
  DequeVoidNode nodes[3];
  for (DequeVoidNode& node : nodes)
    list.InsertNodeBefore(nullptr, &node);
  const DequeVoidNode* removed = list.RemoveNode(&nodes[1]);
  ClauseRequire("next", removed->next == nullptr);
  ClauseRequire("previous", removed->previous == nullptr);
  ClauseRequire("the link of the node before it", nodes[2].next == &nodes[0]);
  return true;
}

// A table that is swept, whose entries count how often their data came back.
struct Counting : HTRemoveFunc {
  void Remove(const HTKeyClass* /*key*/, void* data) override { ++*static_cast<int*>(data); }
};

HTKeyClass KeyOf(const char* text) {
  HTKeyClass key;
  key.text = text;
  key.status = 0;
  return key;
}

int KeyInsert(HTClass* table, const HTKeyClass& key, short room) {
  return table->InsertNode(&key, nullptr, room, nullptr, HTNodeClass::LOCK);
}

int TextInsert(HTClass* table, const char* text, int* data, HTRemoveFunc* remove) {
  const HTKeyClass key = KeyOf(text);
  return table->InsertNode(&key, data, 32, remove, HTNodeClass::LOCK);
}

HTNodeClass* TextFind(HTClass* table, const char* text, short which) {
  const HTKeyClass key = KeyOf(text);
  return table->Find(&key, which, HTNodeClass::LOCK);
}

bool TextThatIsTooLongIsRefused() {
  HTClass table;
  const HTKeyClass key = KeyOf("text");
  ClauseRequire("in a room of 4 bytes", KeyInsert(&table, key, 4) == 0);
  ClauseRequire("in a room of 0 bytes", KeyInsert(&table, key, 0) == 0);
  ClauseRequire("in a room of -1 bytes", KeyInsert(&table, key, -1) == 0);
  ClauseRequire("in a room of 5 bytes", KeyInsert(&table, key, 5) == 1);
  return true;
}

bool OtherKeysAreRefused() {
  HTClass table;
  HTKeyClass without = KeyOf("text"), other = KeyOf("text");
  without.status = -1;
  other.kind = 1;
  ClauseRequire("null", KeyInsert(&table, HTKeyClass(), 32) == 0);
  ClauseRequire("status -1", KeyInsert(&table, without, 32) == 0);
  ClauseRequire("kind 1", KeyInsert(&table, other, 32) == 0);
  return true;
}

bool MarkIsSeen() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  HTNodeClass* node = TextFind(&table, "a", HTClass::IN_USE);
  ClauseRequire("before, a find in use", node != nullptr);
  ClauseRequire("before, a find marked", TextFind(&table, "a", HTClass::MARKED) == nullptr);
  for (const int usesLeft : {1, -1}) {
    node->Release(usesLeft);
    ClauseRequire("IsMarked after " + std::to_string(usesLeft), node->IsMarked() == 0);
  }
  node->Release(0);
  ClauseRequire("IsMarked", node->IsMarked() != 0);
  ClauseRequire("a find in use", TextFind(&table, "a", HTClass::IN_USE) == nullptr);
  ClauseRequire("a find marked", TextFind(&table, "a", HTClass::MARKED) == node);
  return true;
}

bool RetainedEntryIsKept() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  HTNodeClass* node = TextFind(&table, "a", HTClass::IN_USE);
  node->Release(0);
  for (const int usesAdded : {0, -1}) {
    node->Retain(usesAdded);
    ClauseRequire("IsMarked after " + std::to_string(usesAdded), node->IsMarked() != 0);
  }
  node->Retain(1);
  ClauseRequire("RemoveMarked", table.RemoveMarked(HTNodeClass::LOCK) == 0);
  ClauseRequire("IsMarked", node->IsMarked() == 0);
  return true;
}

bool MarkedEntriesAreSwept() {
  constexpr std::size_t COUNT = 3000;
  Counting remove;
  std::vector<int> counts(COUNT), marked(COUNT);
  {
    HTClass table;
    for (std::size_t i = 0; i < COUNT; ++i) {
      const std::string text = std::to_string(i);
      TextInsert(&table, text.c_str(), &counts[i], &remove);
      marked[i] = i % 3 == 0 ? 1 : 0;
      TextFind(&table, text.c_str(), HTClass::IN_USE)->Release(1 - marked[i]);
    }
    ClauseRequire("the result", table.RemoveMarked(HTNodeClass::LOCK) == COUNT / 3);
    ClauseRequire("the data that came back", counts == marked);
    for (std::size_t i = 0; i < COUNT; ++i) {
      const HTNodeClass* left = TextFind(&table, std::to_string(i).c_str(), HTClass::IN_USE);
      ClauseRequire("whether " + std::to_string(i) + " is left",
                    (left != nullptr) == (marked[i] == 0));
    }
  }
  ClauseRequire("the data that came back in the end", counts == std::vector<int>(COUNT, 1));
  return true;
}

template <typename Work> bool Throws(Work work) {
  try {
    work();
  } catch (int) {
    return true;
  }
  return false;
}

// Puts a new entry in the place of each one that is removed, while it has a table, and throws.
struct Throwing : Counting {
  HTClass* table = nullptr;
  void Remove(const HTKeyClass* key, void* data) override {
    Counting::Remove(key, data);
    if (table != nullptr)
      TextInsert(table, key->text, static_cast<int*>(data), this);
    throw *static_cast<int*>(data);
  }
};

bool SweepSurvivesItsFunctions() {
  Throwing remove;
  std::vector<int> counts(4);
  {
    HTClass table;
    for (std::size_t i = 0; i < counts.size(); ++i)
      TextInsert(&table, std::to_string(i).c_str(), &counts[i], &remove);
    for (const char* marked : {"0", "1", "2"})
      TextFind(&table, marked, HTClass::IN_USE)->Release(0);
    remove.table = &table;
    ClauseRequire("the exception", Throws([&] { table.RemoveMarked(HTNodeClass::LOCK); }));
    remove.table = nullptr;
    ClauseRequire("the data of the sweep", counts == std::vector<int>{1, 1, 1, 0});
    ClauseRequire("a sweep after it", table.RemoveMarked(HTNodeClass::LOCK) == 0);
    for (const char* present : {"0", "1", "2", "3"})
      ClauseRequire(std::string("the entry that is now ") + present,
                    TextFind(&table, present, HTClass::IN_USE) != nullptr);
  }
  ClauseRequire("the data of the table's end", counts == std::vector<int>{2, 2, 2, 1});
  return true;
}

bool TableGivesItsDataBack() {
  Counting remove;
  int count = 0;
  {
    HTClass table;
    TextInsert(&table, "a", &count, &remove);
  }
  return count == 1;
}

// A table that has grown, and has removed entries before.
bool TableIsFreed() {
  return MemoryIsGivenBack([] {
    HTClass table;
    for (int i = 0; i < 40; ++i)
      TextInsert(&table, std::to_string(i).c_str(), nullptr, nullptr);
    TextFind(&table, "7", HTClass::IN_USE)->Release(0);
    table.RemoveMarked(HTNodeClass::LOCK);
  });
}

bool NewTableIsEmpty() {
  HTClass table;
  return TextFind(&table, "", HTClass::IN_USE | HTClass::MARKED) == nullptr;
}

// Chooses and visits as it is told, and counts.
struct Visitor : HTMatchFunc, HTExecFunc {
  std::function<int(const HTKeyClass*, const HTNodeClass*)> match, visit;
  int entry = 1, nodes = 0, exits = 0;

  int Match(const HTKeyClass* key, HTNodeClass* node) override { return match(key, node); }
  int LevelEntry(const HTKeyClass* key, HTClass* /*table*/, int level) override {
    ClauseRequire("the key of LevelEntry", key == nullptr);
    ClauseRequire("the level of LevelEntry", level == 0);
    return entry;
  }
  int LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    return ++exits;
  }
  int Node(const HTKeyClass* key, HTNodeClass* node, int /*level*/) override {
    ++nodes;
    return visit != nullptr ? visit(key, node) : 1;
  }
  int Walk(HTClass* table) {
    return table->ForAllMatches(match != nullptr ? this : nullptr, this, HTNodeClass::LOCK);
  }
};

// A table with three entries, the first of them marked.
struct Three {
  HTClass table;
  Three() {
    for (const char* text : {"a", "b", "c"})
      TextInsert(&table, text, nullptr, nullptr);
    TextFind(&table, "a", HTClass::IN_USE)->Release(0);
  }
};

// Many entries: some have to share a place in the table.
bool MatchChooses() {
  HTClass table;
  for (int i = 0; i < 300; ++i) {
    const std::string text = std::to_string(i);
    TextInsert(&table, text.c_str(), nullptr, nullptr);
    TextFind(&table, text.c_str(), HTClass::IN_USE)->Release(i % 3);
  }
  Visitor ofText, unmarked;
  ofText.match = [](const HTKeyClass* key, const HTNodeClass*) {
    return std::strcmp(key->text, "7") == 0 ? 1 : 0;
  };
  unmarked.match = [](const HTKeyClass*, const HTNodeClass* node) { return 1 - node->IsMarked(); };
  ClauseRequire("the result", ofText.Walk(&table) == 1);
  ClauseRequire("the visits of a text", ofText.nodes == 1);
  unmarked.Walk(&table);
  ClauseRequire("the visits of what is not marked", unmarked.nodes == 200);
  return true;
}

bool WalkWithoutVisitorIsRefused() {
  return Three().table.ForAllMatches(nullptr, nullptr, HTNodeClass::LOCK) == 0;
}

bool LevelEntryEndsTheWalk() {
  Three three;
  Visitor visitor;
  visitor.entry = 0;
  ClauseRequire("the result", visitor.Walk(&three.table) == 0);
  ClauseRequire("the visits", visitor.nodes == 0);
  ClauseRequire("the calls of LevelExit", visitor.exits == 0);
  return true;
}

bool StoppedWalkIsLeft() {
  Three three;
  Visitor visitor;
  visitor.visit = [](const HTKeyClass*, const HTNodeClass*) { return 0; };
  visitor.Walk(&three.table);
  return visitor.exits == 1;
}

bool VisitorFinds() {
  Three three;
  Visitor visitor;
  visitor.visit = [&](const HTKeyClass* key, const HTNodeClass* node) {
    const HTNodeClass* found = TextFind(&three.table, key->text, HTClass::IN_USE | HTClass::MARKED);
    ClauseRequire("the entry that is visited", found == node);
    return 1;
  };
  visitor.Walk(&three.table);
  return visitor.nodes == 3;
}

bool VisitorDoesNotInsert() {
  Three three;
  Visitor visitor;
  visitor.visit = [&](const HTKeyClass*, const HTNodeClass*) {
    ClauseRequire("the result", TextInsert(&three.table, "d", nullptr, nullptr) == 0);
    return 1;
  };
  visitor.Walk(&three.table);
  return TextFind(&three.table, "d", HTClass::IN_USE) == nullptr;
}

bool VisitorDoesNotSweep() {
  Three three;
  Visitor visitor;
  visitor.visit = [&](const HTKeyClass*, const HTNodeClass*) {
    ClauseRequire("the result", three.table.RemoveMarked(HTNodeClass::LOCK) == 0);
    return 1;
  };
  visitor.Walk(&three.table);
  return TextFind(&three.table, "a", HTClass::MARKED) != nullptr;
}

int Throw(const HTKeyClass* /*key*/, const HTNodeClass* /*node*/) { throw 7; }

bool WalkEndsByAnException() {
  auto* table = new HTClass;
  TextInsert(table, "a", nullptr, nullptr);
  Visitor inMatch, inVisit;
  inMatch.match = Throw;
  inVisit.visit = Throw;
  ClauseRequire("the exception of the match", Throws([&] { inMatch.Walk(table); }));
  ClauseRequire("the exception of the visitor", Throws([&] { inVisit.Walk(table); }));
  ClauseRequire("an insertion after them", TextInsert(table, "b", nullptr, nullptr) == 1);
  const Helper other([table] { TextInsert(table, "c", nullptr, nullptr); });
  ClauseRequire("the end of another thread's insertion", other.HasEnded());
  return true;
}

}  // namespace

Clauses ProgramContainerClauses() {
  return {
      {"DequeVoid::InsertNodeAfter", "null nodes are ignored", ListIgnoresNull},
      {"DequeVoid::InsertNodeAfter", "links a node after another one, with null as the last one",
       NodesAreTakenAfter},
      {"DequeVoid::InsertNodeBefore", "links a node before another one, with null as the first one",
       NodesAreTakenBefore},
      {"DequeVoid::RemoveNode", "clears the links of the node", RemovedNodeHasNoLinks},
      {"HTClass::HTClass", "makes an empty table", NewTableIsEmpty},
      {"HTClass::~HTClass", "hands every entry's data to its removal function",
       TableGivesItsDataBack},
      {"HTClass::~HTClass", "frees the table and its entries", TableIsFreed},
      {"HTClass::Find", "finds inside a walk of the table", VisitorFinds},
      {"HTClass::InsertNode", "returns 0 for a text that is longer than its room",
       TextThatIsTooLongIsRefused},
      {"HTClass::InsertNode", "returns 0 for a key without text, or of another kind",
       OtherKeysAreRefused},
      {"HTClass::InsertNode", "returns 0 inside a walk of the table, and keeps nothing",
       VisitorDoesNotInsert},
      {"HTClass::RemoveMarked", "of 3000 entries, removes those marked, and hands each over once",
       MarkedEntriesAreSwept},
      {"HTClass::RemoveMarked", "lets removal functions use the table, and throw",
       SweepSurvivesItsFunctions},
      {"HTClass::RemoveMarked", "returns 0 inside a walk of the table, and removes nothing",
       VisitorDoesNotSweep},
      {"HTClass::ForAllMatches", "visits what the match chooses", MatchChooses},
      {"HTClass::ForAllMatches", "returns 0 without a visitor", WalkWithoutVisitorIsRefused},
      {"HTClass::ForAllMatches", "ends when LevelEntry returns 0, without entries and LevelExit",
       LevelEntryEndsTheWalk},
      {"HTClass::ForAllMatches", "calls LevelExit after a walk that the visitor stopped",
       StoppedWalkIsLeft},
      {"HTClass::ForAllMatches", "ends by an exception, and leaves the table free",
       WalkEndsByAnException},
      {"HTNodeClass::Release", "with 0 marks the entry", MarkIsSeen},
      {"HTNodeClass::Retain", "removes the mark", RetainedEntryIsKept},
  };
}
