#include "platform/DequeVoid.h"

namespace {

// Null stands for the end of the list on either side, so every insertion is one between two
// neighbours.
void NodeLink(DequeVoid& list, DequeVoidNode* previous, DequeVoidNode* node, DequeVoidNode* next) {
  node->previous = previous;
  node->next = next;
  (previous != nullptr ? previous->next : list.first) = node;
  (next != nullptr ? next->previous : list.last) = node;
  ++list.count;
}

}  // namespace

void DequeVoid::InsertNodeAfter(DequeVoidNode* where, DequeVoidNode* node) {
  if (node == nullptr)
    return;
  if (where == nullptr)
    NodeLink(*this, last, node, nullptr);
  else
    NodeLink(*this, where, node, where->next);
}

void DequeVoid::InsertNodeBefore(DequeVoidNode* where, DequeVoidNode* node) {
  if (node == nullptr)
    return;
  if (where == nullptr)
    NodeLink(*this, nullptr, node, first);
  else
    NodeLink(*this, where->previous, node, where);
}

DequeVoidNode* DequeVoid::RemoveNode(DequeVoidNode* node) {
  if (node == nullptr || count <= 0)
    return nullptr;
  (node->previous != nullptr ? node->previous->next : first) = node->next;
  (node->next != nullptr ? node->next->previous : last) = node->previous;
  node->next = nullptr;
  node->previous = nullptr;
  --count;
  return node;
}
