#ifndef HOSTS_VORN_HOST_MASK_H
#define HOSTS_VORN_HOST_MASK_H

#include "platform/HTClass.h"
#include "platform/VornExport.h"

/// Questions to a host list that its owner keeps in a hash table: is this address admitted, is it
/// inside a listed subnet, do two lists name one host. Addresses and masks are in host byte order;
/// 127.0.0.1 stands for this host.
///
/// A table is walked under its lock (`HTNodeClass::LOCK`), so any thread may ask. The interface
/// table is read without one.

/// An entry of the list: what the data pointer of each of the table's nodes points to. Entries
/// without data are passed over.
class VORN_API VORNHostMask {
public:
  unsigned int address;  ///< reduced to what the mask leaves of it
  unsigned int mask;     ///< 0xFFFFFFFF: a host; narrower: a subnet; 0: every address

  VORNHostMask(unsigned int hostAddress, unsigned int hostMask);
  ~VORNHostMask();
};

/// Finds out whether one address is admitted by the table that it visits. One walk each.
class VORN_API VORNHostMaskMatchChecker : public HTExecFunc {
public:
  /// With `skipLoopbackRule` 0, an entry for 127.0.0.1 admits every address of this host.
  VORNHostMaskMatchChecker(unsigned int ip, int skipLoopbackRule);
  ~VORNHostMaskMatchChecker() override;

  int LevelEntry(const HTKeyClass* key, HTClass* table, int level) override;
  int LevelExit(const HTKeyClass* key, HTClass* table, int level) override;
  /// Returns 0, which ends the walk, once the address is admitted whatever else is listed; else 1.
  int Node(const HTKeyClass* key, HTNodeClass* node, int level) override;

  /// After a walk to the end: 1 when the address is among the hosts, if any were seen, and inside
  /// one of the subnets, if any were seen; else 0. So 1 when nothing was seen.
  int IsIpMatch();

protected:
  unsigned int _ip;
  int _skipLoopbackRule;
  int _subnetMatched = 0;
  int _hostMatched = 0;
  int _sawSubnet = 0;
  int _sawHost = 0;
};

/// Finds out whether one address is inside a subnet of the table that it visits: that ends the
/// walk. Entries for hosts and for every address are no subnets.
class VORN_API VORNSubnetMatchChecker : public HTExecFunc {
public:
  explicit VORNSubnetMatchChecker(unsigned int ip);
  ~VORNSubnetMatchChecker() override;

  int LevelEntry(const HTKeyClass* key, HTClass* table, int level) override;
  int LevelExit(const HTKeyClass* key, HTClass* table, int level) override;
  int Node(const HTKeyClass* key, HTNodeClass* node, int level) override;

  /// Makes the checker ready for a walk with another address.
  void ResetHostIp(unsigned int ip);
  /// 1 when the last walk saw a subnet, else 0.
  int SawSubnet() const { return _sawSubnet; }

protected:
  int _sawSubnet = 0;
  unsigned int _ip;
};

/// 1 when the list in `table` admits `address`, else 0. An empty list admits everything; one of
/// hosts those hosts; one of subnets what is inside one of them; one of both kinds only what is
/// listed as a host and also inside a subnet. With `skipLoopbackRule` 0 an entry for 127.0.0.1
/// admits every address of this host besides. A null table admits nothing.
VORN_API int VornHostMaskMatch(HTClass* table, unsigned int address, int skipLoopbackRule);

/// Chooses what is inside the subnets of the list in `table`; a list without subnets chooses
/// everything.
///
/// With `addresses`: writes those chosen of `count` to `output` (room for `count`; may be
/// `addresses` itself), in their order, and returns how many.
///
/// With null `addresses`: takes every interface of the process-wide table that is not chosen out of
/// use, by clearing `NIC_UP` for good. The loopback address is always kept. Call it between
/// `NICInitialize` and the first endpoint, before other threads use the table. Returns 0.
///
/// Returns 0 with nothing changed for a null table or output, a count below 1, and without an
/// interface table.
VORN_API int VornSubnetMatch(HTClass* table, unsigned int* addresses, int count,
                             unsigned int* output);

/// 1 when the two lists name the same host, else 0: they share an address other than 127.0.0.1, or
/// both hold 127.0.0.1 and the peer is local, because `loopbackCheckAddress` is 127.0.0.1 or
/// `localCheckAddress` one of this host's. A null list, or a count below 1, names no host.
VORN_API int VornHostKeyMatch(int countA, unsigned int* listA, int countB, unsigned int* listB,
                              unsigned int localCheckAddress, unsigned int loopbackCheckAddress);

#endif
