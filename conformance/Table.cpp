// The table is the program's; the library finds, inserts and visits, always with `LOCK`, and calls
// two operations of the nodes that it finds. `HTKeyClass::Set` is the library's own, so keys are
// made here by their fields.

#include "Clause.h"
#include "LayerObjects.h"

#include <set>
#include <string_view>

namespace {

constexpr short EVERY_ENTRY = HTClass::IN_USE | HTClass::MARKED, KEY_SIZE = 32;

struct Key : HTKeyClass {
  explicit Key(const char* string) {
    text = string;
    status = string != nullptr ? 0 : -1;
  }
};

HTNodeClass* Find(HTClass* table, const char* text) {
  const Key key(text);
  return table->Find(&key, EVERY_ENTRY, HTNodeClass::LOCK);
}

int Insert(HTClass* table, const std::string& text, void* data) {
  const Key key(text.c_str());
  return table->InsertNode(&key, data, KEY_SIZE, nullptr, HTNodeClass::LOCK);
}

struct Visitor : HTExecFunc {
  std::vector<std::string_view> calls;
  std::multiset<void*> seen;
  std::size_t most = 1000000;

  int LevelEntry(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    calls.emplace_back("LevelEntry");
    return 1;
  }
  int LevelExit(const HTKeyClass* /*key*/, HTClass* /*table*/, int /*level*/) override {
    calls.emplace_back("LevelExit");
    return 1;
  }
  int Node(const HTKeyClass* /*key*/, HTNodeClass* node, int /*level*/) override {
    calls.emplace_back("Node");
    seen.insert(node->data);
    return seen.size() < most ? 1 : 0;
  }
  int Walk(HTClass* table) { return table->ForAllMatches(nullptr, this, HTNodeClass::LOCK); }
};

// A table with three entries, whose data are these numbers.
struct Three {
  HTClass* table = TableNew();
  int numbers[3] = {};
  Three() {
    Insert(table, "10.1.2.3", &numbers[0]);
    Insert(table, "10.1.2.4", &numbers[1]);
    Insert(table, "10.1.2.3:7400", &numbers[2]);
  }
  std::multiset<void*> AllGet() { return {&numbers[0], &numbers[1], &numbers[2]}; }
};

bool EntryIsFoundByItsText() {
  Three three;
  std::string text = "10.1.2.";
  text += "4";
  const HTNodeClass* node = Find(three.table, text.c_str());
  ClauseRequire("the entry", node != nullptr);
  ClauseRequire("its data", node->data == &three.numbers[1]);
  return true;
}

bool UnknownTextIsNotFound() {
  Three three;
  ClauseRequire("among other texts", Find(three.table, "10.1.2") == nullptr);
  ClauseRequire("in an empty table", Find(TableNew(), "10.1.2.3") == nullptr);
  return true;
}

bool KeyWithoutTextIsNotFound() { return Find(Three().table, nullptr) == nullptr; }

bool MarkedEntryIsFound() {
  Three three;
  HTNodeClass* node = Find(three.table, "10.1.2.3");
  node->Release(0);
  return Find(three.table, "10.1.2.3") == node;
}

bool InsertionIsTold() { return Insert(TableNew(), "10.1.2.3", nullptr) != 0; }

bool TextIsCopied() {
  HTClass* table = TableNew();
  std::string text(31, 'x');  // the longest one that the library's room of 32 bytes holds
  Insert(table, text, &text);
  text[0] = 'y';
  return Find(table, std::string(31, 'x').c_str()) != nullptr;
}

// Two threads can both find nothing and insert; the second one frees what it would have given.
bool SecondEntryIsRefused() {
  Three three;
  int other = 0;
  ClauseRequire("the result", Insert(three.table, "10.1.2.3", &other) == 0);
  ClauseRequire("the data", Find(three.table, "10.1.2.3")->data == &three.numbers[0]);
  return true;
}

bool SecondEntryOfAMarkedOneIsRefused() {
  Three three;
  Find(three.table, "10.1.2.3")->Release(0);
  return Insert(three.table, "10.1.2.3", nullptr) == 0;
}

bool EveryEntryIsVisitedOnce() {
  Three three;
  Visitor visitor;
  visitor.Walk(three.table);
  return visitor.seen == three.AllGet();
}

bool MarkedEntriesAreVisited() {
  Three three;
  Find(three.table, "10.1.2.4")->Release(0);
  Visitor visitor;
  visitor.Walk(three.table);
  return visitor.seen == three.AllGet();
}

bool VisitsAreFramed() {
  Visitor visitor;
  visitor.Walk(Three().table);
  return visitor.calls ==
         std::vector<std::string_view>{"LevelEntry", "Node", "Node", "Node", "LevelExit"};
}

bool WholeWalkIsTold() {
  Visitor visitor, ofNothing;
  ClauseRequire("over three entries", visitor.Walk(Three().table) != 0);
  ClauseRequire("over none", ofNothing.Walk(TableNew()) != 0);
  return true;
}

bool StoppedWalkEnds() {
  Visitor visitor;
  visitor.most = 2;
  visitor.Walk(Three().table);
  return visitor.seen.size() == 2;
}

bool StoppedWalkIsTold() {
  Visitor visitor;
  visitor.most = 3;  // at the last entry as well
  return visitor.Walk(Three().table) == 0;
}

bool WalkMayBeRepeated() {
  Three three;
  Visitor stopped, whole;
  stopped.most = 1;
  stopped.Walk(three.table);
  ClauseRequire("the second walk's result", whole.Walk(three.table) != 0);
  ClauseRequire("its visits", whole.seen == three.AllGet());
  return true;
}

bool ReleaseLeavesTheEntry() {
  Three three;
  for (const int usesLeft : {1, 0, 0})
    Find(three.table, "10.1.2.3")->Release(usesLeft);
  return Find(three.table, "10.1.2.3")->data == &three.numbers[0];
}

bool RetainLeavesTheEntry() {
  Three three;
  HTNodeClass* node = Find(three.table, "10.1.2.3");
  node->Retain(1);
  node->Release(0);
  node->Retain(1);
  return Find(three.table, "10.1.2.3")->data == &three.numbers[0];
}

bool ThreadsUseATableTogether() {
  HTClass* table = TableNew();
  std::atomic<int> lost{0};
  ThreadsRun(4, [&](int number) {
    for (int i = 0; i < 200; ++i) {
      const std::string text = std::to_string(number) + "." + std::to_string(i);
      lost += Insert(table, text, &lost) == 0 ? 1 : 0;
      lost += Find(table, text.c_str()) == nullptr ? 1 : 0;
      Visitor visitor;
      visitor.most = 100;
      visitor.Walk(table);
    }
  });
  Visitor visitor;
  visitor.Walk(table);
  ClauseRequire("insertions, and finds of what was inserted", lost == 0);
  ClauseRequire("the visits of a walk after them", visitor.seen.size() == 800);
  return true;
}

bool OneOfTwoInsertionsWins() {
  HTClass* table = TableNew();
  std::atomic<int> inserted{0};
  ThreadsRun(4, [&](int) {
    for (int i = 0; i < 500; ++i)
      inserted += Insert(table, std::to_string(i), &inserted) != 0 ? 1 : 0;
  });
  return inserted == 500;
}

bool VisitorIsDerivedAndDestroyed() {
  const std::unique_ptr<HTExecFunc> visitor = std::make_unique<Visitor>();
  return dynamic_cast<Visitor*>(visitor.get()) != nullptr;
}

}  // namespace

Clauses TableClauses() {
  return {
      {"HTClass::Find", "finds an entry by the characters of its text, with its data",
       EntryIsFoundByItsText},
      {"HTClass::Find", "returns null for a text that the table does not hold",
       UnknownTextIsNotFound},
      {"HTClass::Find", "returns null for a key without text", KeyWithoutTextIsNotFound},
      {"HTClass::Find", "with -32767 finds marked entries as well", MarkedEntryIsFound},
      {"HTClass::InsertNode", "says that it has inserted", InsertionIsTold},
      {"HTClass::InsertNode", "keeps a copy of a text of up to 31 characters", TextIsCopied},
      {"HTClass::InsertNode", "returns 0 for a text that the table holds, and keeps the first data",
       SecondEntryIsRefused},
      {"HTClass::InsertNode", "returns 0 for a text whose entry is marked",
       SecondEntryOfAMarkedOneIsRefused},
      {"HTClass::InsertNode", "lets one of several threads insert a text", OneOfTwoInsertionsWins},
      {"HTClass::InsertNode", "goes on beside finds and walks of other threads",
       ThreadsUseATableTogether},
      {"HTClass::ForAllMatches", "without a match visits every entry once",
       EveryEntryIsVisitedOnce},
      {"HTClass::ForAllMatches", "visits marked entries as well", MarkedEntriesAreVisited},
      {"HTClass::ForAllMatches", "calls LevelEntry before the entries and LevelExit after them",
       VisitsAreFramed},
      {"HTClass::ForAllMatches", "does not return 0 after a whole walk", WholeWalkIsTold},
      {"HTClass::ForAllMatches", "ends when the visitor returns 0", StoppedWalkEnds},
      {"HTClass::ForAllMatches", "returns 0 if the visitor returned 0", StoppedWalkIsTold},
      {"HTClass::ForAllMatches", "leaves the table free after a walk that was stopped",
       WalkMayBeRepeated},
      {"HTNodeClass::Release", "is the operation after the destructor, and leaves the entry",
       ReleaseLeavesTheEntry},
      {"HTNodeClass::Retain", "is the operation after Release, and leaves the entry",
       RetainLeavesTheEntry},
      {"HTExecFunc::~HTExecFunc", "a class can be derived from it, and destroyed through it",
       VisitorIsDerivedAndDestroyed},
  };
}
