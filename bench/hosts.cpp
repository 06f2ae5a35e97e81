// Host lists against a bare loop over an array of the same entries, the filter against a loop over
// the bytes, declared recipients against a map.

#include "targets.h"

#include "floors.h"
#include "hosts/VORNDeclRecipient.h"
#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "support/Timed.h"

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>

namespace {

constexpr short KEY_SIZE = 32;
constexpr unsigned int FIRST_HOST = 0x0A4E0001;  // 10.78.0.1
constexpr unsigned int STRANGER = 0x0A4D0001;    // 10.77.0.1, in no list
constexpr unsigned int SUBNET_MASK = 0xFFFFFF00;

// A list as a program keeps it, and an array of the same entries.
struct HostList {
  std::vector<VORNHostMask> entries;
  HTClass table;
  HostList(unsigned int count, unsigned int mask) {
    entries.reserve(count);
    const unsigned int step = mask == VORN_HOST_MASK ? 1 : 256;
    for (unsigned int i = 0; i < count; ++i) {
      char text[VORN_ADDRESS_TEXT_SIZE];
      entries.emplace_back(FIRST_HOST + i * step, mask);
      HTKeyClass key;
      key.Set(VornAddressToString(entries[i].address, text));
      if (table.InsertNode(&key, &entries[i], KEY_SIZE, nullptr, HTNodeClass::NO_LOCK) == 0)
        throw std::runtime_error("the table refuses an entry");
    }
  }
};

struct ArrayNode : HTNodeClass {
  explicit ArrayNode(void* entry) : HTNodeClass(entry) {}
};

// What the table's interface costs without a table: a call of the visitor for each entry.
bool VisitorAdmit(std::deque<ArrayNode>& nodes, HTExecFunc* visitor) {
  for (ArrayNode& node : nodes)
    if (visitor->Node(nullptr, &node, 0) == 0)
      return true;
  return false;
}

// The address is in no entry, so every entry is looked at.
void MatchRun(Runner& runner, const char* name, unsigned int count, unsigned int mask) {
  const auto list = std::make_shared<HostList>(count, mask);
  Case subject{name, "entries", count};
  subject.Add("library", Role::LIBRARY,
              Always([list] { return VornHostMaskMatch(&list->table, STRANGER, 1); }));
  subject.Add("floor", Role::FLOOR,
              Always([list] { return floors::HostAdmit(*Unknown(&list->entries), STRANGER); }));
  const auto nodes = std::make_shared<std::deque<ArrayNode>>();
  for (VORNHostMask& entry : list->entries)
    nodes->emplace_back(&entry);
  subject.Add("array and visitor", Role::PEER, Always([list, nodes] {
                VORNHostMaskMatchChecker checker(STRANGER, 1);
                return VisitorAdmit(*nodes, Unknown(&checker)) ? 1 : checker.IsIpMatch();
              }));
  runner.Run(subject);
}

void KeysRun(Runner& runner, unsigned int count) {
  std::vector<unsigned int> a, b;
  a.reserve(count);
  b.reserve(count);
  for (unsigned int i = 0; i < count; ++i) {
    a.push_back(FIRST_HOST + i);
    b.push_back(STRANGER + i);
  }
  Case subject{"two lists that share no host", "entries", count};
  subject.Add("library", Role::LIBRARY, Always([a, b]() mutable {
                const int size = static_cast<int>(a.size());
                return VornHostKeyMatch(size, a.data(), size, b.data(), STRANGER, STRANGER);
              }));
  subject.Add("floor", Role::FLOOR, Always([a, b] { return floors::ListsShare(a, b); }));
  runner.Run(subject);
}

struct RecipientDelete : HTRemoveFunc {
  void Remove(const HTKeyClass*, void* data) override {
    delete static_cast<VORNDeclRecipient*>(data);
  }
};

struct Recipients {
  RecipientDelete remove;
  HTClass table;
};

// Declares one of `count` recipients that are known already, and withdraws it.
void RecipientsRun(Runner& runner, unsigned int count) {
  const auto known = std::make_shared<Recipients>();
  std::unordered_map<std::string, int> map;
  char text[VORN_ADDRESS_PORT_TEXT_SIZE];
  for (unsigned int i = 0; i < count; ++i) {
    VornDeclRecipientAdd(&known->table, FIRST_HOST + i, 7400, &known->remove, 1);
    map[IPAndPortToString(FIRST_HOST + i, 7400, text)] = 1;
  }
  Case subject{"declare and withdraw", "recipients", count};
  subject.Add("library", Role::LIBRARY, Always([known] {
                char key[] = "10.78.0.1:7400";
                HTKeyClass found;
                found.Set(key);
                VornDeclRecipientAdd(&known->table, FIRST_HOST, 7400, &known->remove, 1);
                VornDeclRecipientMarkForRemoval(&known->table, &found);
                return found.status;
              }));
  subject.Add("unordered_map", Role::FLOOR, Always([map]() mutable {
                char key[VORN_ADDRESS_PORT_TEXT_SIZE];
                std::snprintf(key, sizeof key, "%d.%d.%d.%d:%d", 10, 78, 0, 1, 7400);
                ++map[key];
                return --map["10.78.0.1:7400"];
              }));
  runner.Run(subject);
}

void FilterRun(Runner& runner, int length) {
  std::string text;
  for (int i = 0; static_cast<int>(text.size()) < length; ++i)
    text += "10.78.0." + std::to_string(i % 256) + (i % 8 == 0 ? "  # a comment\n" : " : \t");
  text.resize(static_cast<std::size_t>(length));
  Case subject{"filter a text", "bytes", length};
  subject.Add("library", Role::LIBRARY,
              Always([text, length, output = std::vector<char>(text.size())]() mutable {
                FilterStatus status{1, 0};
                int overflow = 0;
                return FilterWhitespace(&status, &overflow, output.data(), length, text.data(),
                                        length, ':', '#');
              }));
  subject.Add("floor", Role::FLOOR,
              Always([text, length, output = std::vector<char>(text.size())]() mutable {
                return floors::TextFilter(text.data(), length, output.data());
              }));
  runner.Run(subject);
}

}  // namespace

void HostsBench(Runner& runner) {
  VORNDGramClass::NICInitialize();
  for (const unsigned int count : {1U, 10U, 100U, 1000U, 2000U}) {
    MatchRun(runner, "list of hosts", count, VORN_HOST_MASK);
    MatchRun(runner, "list of subnets", count, SUBNET_MASK);
    KeysRun(runner, count);
    RecipientsRun(runner, count);
  }
  for (const int length : {64, 4096, 65536})
    FilterRun(runner, length);
  VORNDGramClass::NICDestroy();
}
