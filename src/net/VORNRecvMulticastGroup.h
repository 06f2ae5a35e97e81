#ifndef NET_VORN_RECV_MULTICAST_GROUP_H
#define NET_VORN_RECV_MULTICAST_GROUP_H

#include "platform/VornExport.h"

class DequeVoid;

/// One joined multicast group and how often it was joined.
class VORN_API VORNRecvMulticastGroup {
public:
  unsigned int address;  ///< host byte order
  int refCount = 1;      ///< joins not yet taken back

  explicit VORNRecvMulticastGroup(unsigned int address);
  /// 1 when the address is a multicast address and the count not negative, else 0.
  int IsValid() const;
};

/// The groups that one endpoint has joined, in the order of their first join. It owns its records.
/// No lock.
class VORN_API VORNRecvMulticastGroupManager {
public:
  VORNRecvMulticastGroupManager();
  /// Frees the list. Records still in it are not freed: empty it first.
  ~VORNRecvMulticastGroupManager();
  VORNRecvMulticastGroupManager(const VORNRecvMulticastGroupManager&) = delete;
  VORNRecvMulticastGroupManager& operator=(const VORNRecvMulticastGroupManager&) = delete;

  /// Counts one more join of `address`. Returns the count, or -1 without memory and when it cannot
  /// grow.
  int Add(unsigned int address);
  /// Takes one join back and forgets the group at the last. Returns the joins left, or -1 when
  /// there is no such group.
  int Remove(unsigned int address);
  /// The address of the group joined earliest; 0 when there is none.
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
