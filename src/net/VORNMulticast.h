#ifndef NET_VORN_MULTICAST_H
#define NET_VORN_MULTICAST_H

#include "platform/VornExport.h"

/// How multicast is sent. The order of its fields is part of what programs link against, and so is
/// its size.
struct VORNMulticastProperties {
  int enable;  ///< non-zero: an endpoint for each multicast-capable interface; 0: one ordinary one
  unsigned char ttl;  ///< time-to-live of multicast datagrams: 1 stays on the local network
  int loopback;       ///< 0: this host does not hear its own multicast; else the system's default
};

/// Writes the defaults: `enable` 0, `ttl` 1, `loopback` 1. A null pointer is ignored.
VORN_API void VornMulticastPropertiesDefaultGet(VORNMulticastProperties* properties);

#endif
