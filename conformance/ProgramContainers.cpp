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

int TextInsert(HTClass* table, const char* text, int* data, HTRemoveFunc* remove) {
  HTKeyClass key;
  key.text = text;
  key.status = 0;
  return table->InsertNode(&key, data, 32, remove, HTNodeClass::LOCK);
}

HTNodeClass* TextFind(HTClass* table, const char* text, short which) {
  HTKeyClass key;
  key.text = text;
  key.status = 0;
  return table->Find(&key, which, HTNodeClass::LOCK);
}

bool MarkIsSeen() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  HTNodeClass* node = TextFind(&table, "a", HTClass::IN_USE);
  ClauseRequire("before, a find in use", node != nullptr);
  ClauseRequire("before, a find marked", TextFind(&table, "a", HTClass::MARKED) == nullptr);
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
  node->Retain(1);
  ClauseRequire("RemoveMarked", table.RemoveMarked(HTNodeClass::LOCK) == 0);
  ClauseRequire("IsMarked", node->IsMarked() == 0);
  return true;
}

bool MarkedEntriesAreSwept() {
  Counting remove;
  int counts[2] = {};
  HTClass table;
  TextInsert(&table, "a", &counts[0], &remove);
  TextInsert(&table, "b", &counts[1], &remove);
  TextFind(&table, "a", HTClass::IN_USE)->Release(0);
  ClauseRequire("the result", table.RemoveMarked(HTNodeClass::LOCK) == 1);
  ClauseRequire("the data of the marked entry", counts[0] == 1);
  ClauseRequire("the data of the other entry", counts[1] == 0);
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

bool NewTableIsEmpty() {
  HTClass table;
  return TextFind(&table, "", HTClass::IN_USE | HTClass::MARKED) == nullptr;
}

// Chooses one entry; the visitor sees it alone.
struct Choice : HTMatchFunc, HTExecFunc {
  int seen = 0;
  int Match(const HTKeyClass* key, HTNodeClass* /*node*/) override {
    return std::strcmp(key->text, "a") == 0 ? 1 : 0;
  }
  int LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    return 1;
  }
  int LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override { return 1; }
  int Node(const HTKeyClass* /*key*/, HTNodeClass* /*node*/, int /*level*/) override {
    return ++seen;
  }
};

bool MatchChooses() {
  HTClass table;
  TextInsert(&table, "a", nullptr, nullptr);
  TextInsert(&table, "b", nullptr, nullptr);
  Choice choice;
  ClauseRequire("the result", table.ForAllMatches(&choice, &choice, HTNodeClass::LOCK) == 1);
  ClauseRequire("the visits", choice.seen == 1);
  return true;
}

}  // namespace

Clauses ProgramContainerClauses() {
  return {
      {"DequeVoid::InsertNodeAfter", "null nodes are ignored", ListIgnoresNull},
      {"DequeVoid::RemoveNode", "clears the links of the node", RemovedNodeHasNoLinks},
      {"HTClass::HTClass", "makes an empty table", NewTableIsEmpty},
      {"HTClass::~HTClass", "hands every entry's data to its removal function",
       TableGivesItsDataBack},
      {"HTClass::RemoveMarked", "removes marked entries, with their data handed over once",
       MarkedEntriesAreSwept},
      {"HTClass::ForAllMatches", "visits what the match chooses", MatchChooses},
      {"HTNodeClass::Release", "with 0 marks the entry", MarkIsSeen},
      {"HTNodeClass::Retain", "removes the mark", RetainedEntryIsKept},
  };
}
