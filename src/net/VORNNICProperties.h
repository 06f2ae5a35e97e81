#ifndef NET_VORN_NIC_PROPERTIES_H
#define NET_VORN_NIC_PROPERTIES_H

#include "platform/VornExport.h"

#include <cstdint>

/// Property bits of a network interface. No other bit is ever set.
enum VORNNICFlag : std::uint32_t {
  NIC_BROADCAST = 0x01,  ///< it can broadcast
  NIC_LOOPBACK = 0x02,   ///< it reaches this host only
  NIC_MULTICAST = 0x04,  ///< it can multicast
  NIC_UP = 0x10,         ///< it is up, and was not ruled out by a list of subnets
};

/// Records that an interface table has room for. The system is asked for no more.
inline constexpr int VORN_NIC_CAPACITY = 32;

/// One IPv4 interface of this host. The interface table is an array of these, so size and order of
/// the fields are part of what programs link against: nothing can be added.
struct VORNNICProperties {
  std::uint32_t flags;    ///< bits of `VORNNICFlag`
  std::uint32_t address;  ///< host byte order
};

/// Whether an interface is multicast-capable: it is up, it can multicast, and it is no loopback
/// interface. Groups are joined on these interfaces, and multicast is sent from them.
inline bool VornNicIsMulticastCapable(const VORNNICProperties& nic) {
  return (nic.flags & (NIC_UP | NIC_MULTICAST | NIC_LOOPBACK)) == (NIC_UP | NIC_MULTICAST);
}

/// Writes the default table, which stands in for one that cannot be read, into `table` (room for 2
/// records) and sets `*count` to 2. The first record is this host by its name, with address 0 when
/// the name cannot be resolved; the second is the loopback address. Both are up and can multicast.
/// Returns 1, or 0 with nothing written for a null argument.
VORN_API int NicDefaultGet(VORNNICProperties* table, int* count);

/// Prints one line for `nic` at every verbosity: `prefix`, address and flags. `level` is not read.
/// A null `nic` is ignored; a null `prefix` prints as an empty text.
VORN_API void NicPropertiesPrint(const char* prefix, int level, VORNNICProperties* nic);

/// Fills `table` (room for `VORN_NIC_CAPACITY` records) with the IPv4 interfaces of this host and
/// sets `*count`. They stand in the order in which the system lists them, and those that are down
/// or loopback are among them. When the system gives no answer or no interface, the table is the
/// default table, and a line at level >= 0 says so. Returns 1, or 0 for a null argument. Opens and
/// closes a socket.
VORN_API int NicInterfaceUNIXVxWorksGet(VORNNICProperties* table, int* count);

/// The same, with a line at level >= 0 that names a null argument. `count` is looked at first.
VORN_API int NicInterfaceGet(VORNNICProperties* table, int* count);

#endif
