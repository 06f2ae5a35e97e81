#ifndef PLATFORM_DEQUE_VOID_H
#define PLATFORM_DEQUE_VOID_H

#include "platform/VornExport.h"

/// One place in a `DequeVoid`. The list links nodes; it never allocates or frees one.
struct DequeVoidNode {
  DequeVoidNode* next = nullptr;
  DequeVoidNode* previous = nullptr;
  void* data = nullptr;  ///< whatever the list's user keeps; the list does not look at it
};

/// A double-ended list of caller-owned nodes. All fields zero is the empty list. No lock: its users
/// serialise access.
class VORN_API DequeVoid {
public:
  DequeVoidNode* first = nullptr;
  DequeVoidNode* last = nullptr;
  int count = 0;

  /// Links `node` behind `where`, or as the last one when `where` is null. A null node is ignored.
  void InsertNodeAfter(DequeVoidNode* where, DequeVoidNode* node);
  /// Links `node` before `where`, or as the first one when `where` is null. A null node is ignored.
  void InsertNodeBefore(DequeVoidNode* where, DequeVoidNode* node);
  /// Unlinks `node`, which must be in this list, clears its links and returns it for its owner to
  /// free. Null for null, and for an empty list.
  DequeVoidNode* RemoveNode(DequeVoidNode* node);
};

#endif
