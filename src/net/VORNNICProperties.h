#ifndef NET_VORN_NIC_PROPERTIES_H
#define NET_VORN_NIC_PROPERTIES_H

#include "platform/VornExport.h"

#include <cstdint>

/// Property bits of a network interface.
enum VORNNICFlag : std::uint32_t {
  NIC_BROADCAST = 0x01,
  NIC_LOOPBACK = 0x02,
  NIC_MULTICAST = 0x04,
  NIC_UP = 0x10,
};

/// Records that an interface table has room for.
inline constexpr int VORN_NIC_CAPACITY = 32;

/// One IPv4 interface of this host.
struct VORNNICProperties {
  std::uint32_t flags;    ///< bits of `VORNNICFlag`
  std::uint32_t address;  ///< host byte order
};

/// The one rule by which groups are joined on an interface and multicast is sent from it: it is up,
/// it can multicast, and it is no loopback interface.
inline bool VornNicIsMulticastCapable(const VORNNICProperties& nic) {
  return (nic.flags & (NIC_UP | NIC_MULTICAST | NIC_LOOPBACK)) == (NIC_UP | NIC_MULTICAST);
}

/// Writes the table that stands in for one that cannot be read into `table` (room for 2 records):
/// this host by its name (address 0 when it cannot be resolved) and the loopback address, both up
/// and able to multicast. Sets `*count` to 2. Returns 1, or 0 with nothing written for a null
/// argument.
VORN_API int NicDefaultGet(VORNNICProperties* table, int* count);

/// Prints one line for `nic`, whatever the verbosity: `prefix`, address and flags. `level` is not
/// read. A null `nic` is ignored.
VORN_API void NicPropertiesPrint(const char* prefix, int level, VORNNICProperties* nic);

/// Fills `table` (room for `VORN_NIC_CAPACITY` records) with the host's IPv4 interfaces in the
/// order in which the system lists them, down and loopback ones included, and sets `*count`. When
/// the system has no answer or no interface, the default table takes its place, with a line at
/// level >= 0. Returns 1, or 0 for a null argument. Opens and closes a socket.
VORN_API int NicInterfaceUNIXVxWorksGet(VORNNICProperties* table, int* count);

/// The same, with a line at level >= 0 that names the null argument: the count is looked at first.
VORN_API int NicInterfaceGet(VORNNICProperties* table, int* count);

#endif
