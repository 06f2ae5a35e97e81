#ifndef HOSTS_VORN_HOST_MASK_H
#define HOSTS_VORN_HOST_MASK_H

#include "platform/HTClass.h"
#include "platform/VornExport.h"

/// @file
/// Questions to a host list, which its owner keeps in a hash table. Is this address admitted? Is it
/// inside a listed subnet? Do two lists name the same host? Addresses and masks are in host byte
/// order; 127.0.0.1 stands for this host.
///
/// A table is walked under its lock (`HTNodeClass::LOCK`), so any thread may ask. The interface
/// table is read without one.

/// An entry of the list: the data pointer of each of the table's nodes points to one. A node
/// without data is passed over. Append only: programs are linked against the order of the fields.
class VORN_API VORNHostMask {
public:
  unsigned int address;  ///< only the bits that are set in the mask
  unsigned int mask;     ///< 0xFFFFFFFF: a host; 0: every address; any other value: a subnet

  /// Stores the mask, and the address without the bits that are not in the mask.
  VORNHostMask(unsigned int hostAddress, unsigned int hostMask);
  /// Frees nothing: an entry owns nothing.
  ~VORNHostMask();
};

/// Finds out whether one address is admitted by the table that it visits. One object is good for
/// one walk. Append only: programs are linked against the order of the virtual operations and of
/// the fields.
class VORN_API VORNHostMaskMatchChecker : public HTExecFunc {
public:
  /// Asks for `ip`. If `skipLoopbackRule` is 0, an entry for 127.0.0.1 admits every address of this
  /// host.
  VORNHostMaskMatchChecker(unsigned int ip, int skipLoopbackRule);
  /// Frees nothing.
  ~VORNHostMaskMatchChecker() override;

  /// Does nothing and returns 1: the walk goes on.
  int LevelEntry(const HTKeyClass* key, HTClass* table, int level) override;
  /// Does nothing and returns 1.
  int LevelExit(const HTKeyClass* key, HTClass* table, int level) override;
  /// Looks at one entry. Returns 0, which ends the walk, if the address is admitted whatever the
  /// entries after this one are; else 1.
  int Node(const HTKeyClass* key, HTNodeClass* node, int level) override;

  /// For use after a walk that was not ended by `Node`. Returns 0 if hosts were seen and the
  /// address is none of them, or if subnets were seen and it is inside none of them; else 1. So the
  /// result is 1 if no entry was seen.
  int IsIpMatch();

protected:
  unsigned int _ip;        ///< the address that is asked for
  int _skipLoopbackRule;   ///< not 0: 127.0.0.1 in the list admits only itself
  int _subnetMatched = 0;  ///< 1: a subnet with the address was seen
  int _hostMatched = 0;    ///< 1: the address was seen as a host
  int _sawSubnet = 0;      ///< 1: some subnet was seen
  int _sawHost = 0;        ///< 1: some host was seen
};

/// Finds out whether one address is inside a subnet of the table that it visits; if so, it ends the
/// walk. Entries for hosts and for every address are no subnets. Append only: programs are linked
/// against the order of the virtual operations and of the fields.
class VORN_API VORNSubnetMatchChecker : public HTExecFunc {
public:
  /// Asks for `ip`.
  explicit VORNSubnetMatchChecker(unsigned int ip);
  /// Frees nothing.
  ~VORNSubnetMatchChecker() override;

  /// Does nothing and returns 1: the walk goes on.
  int LevelEntry(const HTKeyClass* key, HTClass* table, int level) override;
  /// Does nothing and returns 1.
  int LevelExit(const HTKeyClass* key, HTClass* table, int level) override;
  /// Looks at one entry. Returns 0, which ends the walk, if it is a subnet with the address;
  /// else 1.
  int Node(const HTKeyClass* key, HTNodeClass* node, int level) override;

  /// Makes the checker ready for a walk with another address.
  void ResetHostIp(unsigned int ip);
  /// Returns 1 if the last walk saw a subnet, else 0.
  int SawSubnet() const { return _sawSubnet; }

protected:
  int _sawSubnet = 0;  ///< 1: some subnet was seen in the last walk
  unsigned int _ip;    ///< the address that is asked for
};

/// Returns 1 if the list in `table` admits `address`, else 0. An empty list admits every address. A
/// list of hosts admits those hosts. A list of subnets admits what is inside one of them. A list of
/// both kinds admits only what is listed as a host and also inside a subnet. If `skipLoopbackRule`
/// is 0, an entry for 127.0.0.1 admits every address of this host besides. A null table admits
/// nothing.
VORN_API int VornHostMaskMatch(HTClass* table, unsigned int address, int skipLoopbackRule);

/// Chooses what is inside the subnets of the list in `table`. A list without subnets chooses
/// everything.
///
/// With `addresses`: writes the addresses that are chosen of `count` to `output`, in their order,
/// and returns how many. `output` has room for `count`; it may be `addresses` itself.
///
/// With null `addresses`: clears `NIC_UP` of every interface of the process-wide table that is not
/// chosen, and nothing sets it again. The loopback address always stays in use. Call it after
/// `NICInitialize` and before the first endpoint is made and other threads use the table. Returns
/// 0.
///
/// Returns 0, with nothing changed, for a null table or output, for a count below 1, and if there
/// is no interface table.
VORN_API int VornSubnetMatch(HTClass* table, unsigned int* addresses, int count,
                             unsigned int* output);

/// Returns 1 if the two lists name the same host, else 0. They do if they share an address other
/// than 127.0.0.1. They also do if both hold 127.0.0.1 and the peer is on this host, which means
/// that `loopbackCheckAddress` is 127.0.0.1 or `localCheckAddress` is an address of this host. A
/// list that is null or has a count below 1 names no host.
VORN_API int VornHostKeyMatch(int countA, unsigned int* listA, int countB, unsigned int* listB,
                              unsigned int localCheckAddress, unsigned int loopbackCheckAddress);

#endif
