// The library makes lists and nodes itself, with every field zero, walks them by their fields, and
// frees what `RemoveNode` hands back.

#include "Clause.h"

#include "platform/DequeVoid.h"

namespace {

// A list of nodes 0, 1, 2 and what is around each of them.
struct Three {
  Guarded<DequeVoid> list;
  Guarded<DequeVoidNode> nodes[3];

  Three() {
    for (auto& node : nodes) {
      node.object.data = this;
      list.object.InsertNodeAfter(list.object.last, &node.object);
    }
  }
  DequeVoidNode* At(int index) { return &nodes[index].object; }

  // Whether the list is `expected`, from both ends.
  bool Is(const std::vector<DequeVoidNode*>& expected) const {
    std::vector<DequeVoidNode*> forward, backward;
    for (DequeVoidNode* node = list.object.first; node != nullptr && forward.size() < 9;
         node = node->next)
      forward.push_back(node);
    for (DequeVoidNode* node = list.object.last; node != nullptr && backward.size() < 9;
         node = node->previous)
      backward.insert(backward.begin(), node);
    return forward == expected && backward == expected &&
           list.object.count == static_cast<int>(expected.size());
  }
};

bool NodesAreAppended() {
  Three three;
  return three.Is({three.At(0), three.At(1), three.At(2)});
}

template <void (DequeVoid::*insert)(DequeVoidNode*, DequeVoidNode*)> bool FirstNodeIsLinked() {
  DequeVoid list;
  DequeVoidNode node;
  (list.*insert)(nullptr, &node);
  ClauseRequire("first", list.first == &node);
  ClauseRequire("last", list.last == &node);
  ClauseRequire("count", list.count == 1);
  return true;
}

bool NodeIsPutFirst() {
  Three three;
  DequeVoidNode node;
  three.list.object.InsertNodeBefore(three.list.object.first, &node);
  return three.Is({&node, three.At(0), three.At(1), three.At(2)});
}

bool OnlyFieldsAreWritten() {
  Three three;
  three.list.object.RemoveNode(three.At(1));
  for (auto& node : three.nodes)
    if (!node.IsIntact() || node.object.data != &three)
      return false;
  return three.list.IsIntact();
}

bool RemovedNodeIsHandedBack() {
  for (int index = 0; index < 3; ++index) {
    Three three;
    const DequeVoidNode* removed = three.list.object.RemoveNode(three.At(index));
    ClauseRequire("node " + std::to_string(index) + " of 0 to 2", removed == three.At(index));
  }
  return true;
}

template <int index> bool NodeIsUnlinked() {
  Three three;
  three.list.object.RemoveNode(three.At(index));
  return three.Is({three.At(index == 0 ? 1 : 0), three.At(index == 2 ? 1 : 2)});
}

bool ListIsEmptied() {
  Three three;
  for (int index = 0; index < 3; ++index)
    three.list.object.RemoveNode(three.At(index));
  return three.Is({});
}

// Memory that was freed inside would be given back twice.
bool RemovedNodeIsTheCallers() {
  DequeVoid list;
  auto* node = new DequeVoidNode;
  list.InsertNodeAfter(list.last, node);
  delete list.RemoveNode(node);
  return true;
}

}  // namespace

Clauses ListClauses() {
  return {
      {"DequeVoid::InsertNodeAfter", "behind the last node appends", NodesAreAppended},
      {"DequeVoid::InsertNodeAfter", "with null in an empty list, links the first node",
       FirstNodeIsLinked<&DequeVoid::InsertNodeAfter>},
      {"DequeVoid::InsertNodeAfter", "writes the fields of list and nodes, and nothing beside them",
       OnlyFieldsAreWritten},
      {"DequeVoid::InsertNodeBefore", "before the first node puts a new one first", NodeIsPutFirst},
      {"DequeVoid::InsertNodeBefore", "with null in an empty list, links the first node",
       FirstNodeIsLinked<&DequeVoid::InsertNodeBefore>},
      {"DequeVoid::RemoveNode", "returns the node", RemovedNodeIsHandedBack},
      {"DequeVoid::RemoveNode", "unlinks the first node", NodeIsUnlinked<0>},
      {"DequeVoid::RemoveNode", "unlinks a node in the middle", NodeIsUnlinked<1>},
      {"DequeVoid::RemoveNode", "unlinks the last node", NodeIsUnlinked<2>},
      {"DequeVoid::RemoveNode", "leaves an empty list behind", ListIsEmptied},
      {"DequeVoid::RemoveNode", "leaves the node's memory to the caller", RemovedNodeIsTheCallers},
  };
}
