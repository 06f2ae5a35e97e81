#ifndef VORNDIAG_MCAST_LOOK_H
#define VORNDIAG_MCAST_LOOK_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What decides on this host whether datagrams to a group are sent and heard. Looking sends
/// nothing.

/// One address of an interface, or an interface without one.
struct McastInterface {
  std::string name;
  unsigned int address = 0;  ///< host byte order; 0: none
  int index = 0;             ///< the system's number of it
  bool isUp = false;
  bool hasCarrier = false;
  bool canMulticast = false;
  bool isLoopback = false;
  bool isUsed = false;        ///< the library joins and sends groups there
  bool isPruned = false;      ///< a host list took it out of use
  int reversePathFilter = 0;  ///< 0: off, 1: strict, 2: loose
};

struct McastLook {
  std::vector<McastInterface> interfaces;
  std::optional<int> membershipLimit;  ///< of a socket
  unsigned int peer = 0;               ///< the other host's address; 0: not known
  unsigned int peerRoute = 0;          ///< our address on the way to it; 0: there is no route

  // What came of the attempt.
  bool receives = false;  ///< it should receive
  bool sends = false;     ///< it should send
  int port = 0;
  int portError = 0;      ///< why the port could not be bound, `errno`; 0: it could
  bool isJoined = false;  ///< the group is joined on all interfaces that are used
  int sendError = 0;      ///< why a send failed, `errno`; 0: none did
  bool loopback = true;   ///< this host hears what it sends
};

/// Looks at the interfaces and limits, and how `peer` (0: nobody) is reached. The interface table
/// exists, pruned or not.
McastLook McastLookGet(unsigned int peer);

/// Why `port` cannot be bound and shared, `errno`; 0 if it can.
int McastPortErrorGet(int port);

#endif
