#ifndef FILECAST_WIRE_PEER_LIST_H
#define FILECAST_WIRE_PEER_LIST_H

#include "hostlist/HostList.h"

/// The hosts that this one deals with, from the list VORN_PEER_HOSTS: a file of that name in the
/// working directory or, without one, the environment variable.
class PeerList {
public:
  /// Without a list everybody is admitted.
  PeerList() = default;

  /// Reads the list and tells the user about each entry that cannot be used; the others are used.
  /// Throws a `Failure` when there is no list, when it cannot be read whole, or when none of its
  /// entries can be used: the library takes an empty list as one that admits everybody.
  void ListRead();

  /// Takes the interfaces outside the listed subnets out of use. Call it after the interface
  /// table is made and before the first endpoint is.
  void InterfacesChoose();

  /// Whether datagrams from `address`, in host byte order, are to be read.
  bool Admits(unsigned int address);

private:
  bool _hasList = false;
  HostTable _table;
};

#endif
