#ifndef NET_VORN_RECV_MULTICAST_GROUP_H
#define NET_VORN_RECV_MULTICAST_GROUP_H

#include "platform/VornExport.h"

class DequeVoid;

/// One joined multicast group and how often it was joined. The order of its fields is part of what
/// programs link against: append only.
class VORN_API VORNRecvMulticastGroup {
public:
  unsigned int address;  ///< host byte order
  int refCount = 1;      ///< joins that are not undone yet

  /// A group that was joined once; the address is not judged here.
  explicit VORNRecvMulticastGroup(unsigned int address);
  /// 1 when the address is a multicast address and the count is not negative, else 0.
  int IsValid() const;
};

/// The groups that one endpoint has joined, in the order of their first join. It counts only; the
/// endpoint does the joining. It owns its records. It has no lock: one thread at a time.
///
/// The order of its fields is part of what programs link against: append only.
class VORN_API VORNRecvMulticastGroupManager {
public:
  /// No group.
  VORNRecvMulticastGroupManager();
  /// Frees the list. Records that are still in it are not freed: empty it first.
  ~VORNRecvMulticastGroupManager();
  VORNRecvMulticastGroupManager(const VORNRecvMulticastGroupManager&) = delete;
  VORNRecvMulticastGroupManager& operator=(const VORNRecvMulticastGroupManager&) = delete;

  /// Counts one more join of `address`. Returns the count. Returns -1, with nothing changed, when
  /// there is no memory or the count cannot grow.
  int Add(unsigned int address);
  /// Counts one join less, and forgets the group at the last. Returns the joins that are left, or
  /// -1 when there is no such group.
  int Remove(unsigned int address);
  /// The address of the group that was joined earliest; 0 when there is none.
  unsigned int HeadGet() const;
  /// 1 when there is no group, else 0.
  int IsEmpty() const;

protected:
  DequeVoid* _groups;  ///< each node's data is a `VORNRecvMulticastGroup*`

private:
  friend class VORNDGram;

  // 1 when the list could be allocated, else 0; without it nothing can be added.
  VORN_LOCAL int IsValid() const;
};

#endif
