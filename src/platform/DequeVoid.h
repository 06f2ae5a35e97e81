#ifndef PLATFORM_DEQUE_VOID_H
#define PLATFORM_DEQUE_VOID_H

#include "platform/VornExport.h"

/// One place in a `DequeVoid`. The list links nodes; it never allocates or frees one. Append only:
/// programs are linked against the order of the fields.
struct DequeVoidNode {
  DequeVoidNode* next = nullptr;      ///< null in the last node
  DequeVoidNode* previous = nullptr;  ///< null in the first node
  void* data = nullptr;  ///< whatever the list's user keeps; the list does not look at it
};

/// A double-ended list of nodes that its users own. All fields zero is the empty list. It has no
/// lock: one thread at a time uses it. Append only: the library reads the second field, and
/// programs are linked against the order of the fields.
class VORN_API DequeVoid {
public:
  DequeVoidNode* first = nullptr;  ///< null in an empty list
  DequeVoidNode* last = nullptr;   ///< null in an empty list
  int count = 0;                   ///< nodes in the list

  /// Links `node` after `where`, or as the last one if `where` is null. A null node is ignored.
  void InsertNodeAfter(DequeVoidNode* where, DequeVoidNode* node);
  /// Links `node` before `where`, or as the first one if `where` is null. A null node is ignored.
  void InsertNodeBefore(DequeVoidNode* where, DequeVoidNode* node);
  /// Unlinks `node`, which must be in this list, clears its links and returns it, so that its owner
  /// can free it. Returns null for null, and for an empty list.
  DequeVoidNode* RemoveNode(DequeVoidNode* node);
};

#endif
