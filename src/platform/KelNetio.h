#ifndef PLATFORM_KEL_NETIO_H
#define PLATFORM_KEL_NETIO_H

#include "platform/VornExport.h"

/// A network address of the lower layer: two operations, whose first argument is the object, and
/// the data from which they answer. The library calls the operations and never looks at the data.
/// Append only: programs are linked against the order of the fields.
struct KELNetioAddr {
  int (*portGet)(KELNetioAddr* self) = nullptr;              ///< the port, host byte order
  unsigned int (*addressGet)(KELNetioAddr* self) = nullptr;  ///< IPv4 address, host byte order
  unsigned int address = 0;                                  ///< IPv4 address, host byte order
  int port = 0;                                              ///< host byte order
};

/// Makes `self` the IPv4 address `address` with `port`, both in host byte order. Any port is
/// stored; sending accepts 0 to 65535. A null `self` is ignored. The object owns nothing.
VORN_API void KelNetioAddrInitialize(KELNetioAddr* self, unsigned int address, int port);

/// Starts the network layer. Harmless when repeated. Returns 1, or 0 if there is no network.
VORN_API int KelNetioInit();

#endif
