#ifndef PLATFORM_KEL_NETIO_H
#define PLATFORM_KEL_NETIO_H

#include "platform/VornExport.h"

/// A network address as the lower layer hands it around: a few operations that take the object as
/// their first argument, and the data that they answer from. The library calls the two operations
/// and never looks at the data.
struct KELNetioAddr {
  int (*portGet)(KELNetioAddr* self) = nullptr;              ///< the port, host byte order
  unsigned int (*addressGet)(KELNetioAddr* self) = nullptr;  ///< IPv4 address, host byte order
  unsigned int address = 0;
  int port = 0;
};

/// Makes `self` the IPv4 address `address` (host byte order) with `port` (host byte order; 0 to
/// 65535 can be sent to). A null `self` is ignored. The object owns nothing.
VORN_API void KelNetioAddrInitialize(KELNetioAddr* self, unsigned int address, int port);

/// Starts the network layer. Harmless when repeated. Returns 1, or 0 when there is no network.
VORN_API int KelNetioInit();

#endif
