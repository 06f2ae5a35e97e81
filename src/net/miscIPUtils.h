#ifndef NET_MISC_IP_UTILS_H
#define NET_MISC_IP_UTILS_H

#include "platform/KelNetio.h"
#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// @file
/// Names, texts and kinds of IPv4 addresses. Everywhere in the library an address is an unsigned
/// 32-bit number in host byte order: the first dotted component is the most significant byte, and 0
/// means none. A port is an int in host byte order.
///
/// No state is kept. Any thread may call these operations; resolving a name is as safe between
/// threads as the system's `gethostbyname`.

/// 127.0.0.1, the address by which a host reaches itself.
inline constexpr unsigned int VORN_LOOPBACK_ADDRESS = 0x7F000001;
/// The mask of a single host: every bit of an address counts.
inline constexpr unsigned int VORN_HOST_MASK = 0xFFFFFFFF;
/// Size in bytes, terminator included, of the buffers for this host's own name.
inline constexpr int VORN_HOST_NAME_SIZE = 64;

/// Bytes, terminator included, that the caller provides for the text of an address.
inline constexpr int VORN_ADDRESS_TEXT_SIZE = 16;
/// Bytes, terminator included, that the caller provides for the text of an address with a port.
inline constexpr int VORN_ADDRESS_PORT_TEXT_SIZE = 28;

extern "C" {

/// Reads this host's name into `buffer` of `length` bytes. Returns `buffer`, or null when the name
/// cannot be read, does not fit with its terminator, or an argument is null or negative.
VORN_API char* VornHostNameGet(char* buffer, int length);

/// Writes the dotted text of `address` into `buffer` (`VORN_ADDRESS_TEXT_SIZE` bytes). Returns
/// `buffer`, or null with nothing written for a null buffer.
VORN_API char* VornAddressToString(unsigned int address, char* buffer);

/// The same, but returns the constant text "invalid IP address" instead of null, so that the result
/// can always be printed with %s.
VORN_API const char* VornAddressToStringPrintable(unsigned int address, char* buffer);

/// The address that `text` names: four dotted decimal numbers, or else a host name, which is
/// resolved. A null `text` means this host. The numbers are neither limited to a byte nor masked,
/// and what follows the fourth is ignored. A number above 4294967295 is whatever the system's
/// `sscanf` makes of it. Returns 0 when the name cannot be resolved, with a line at level > 0, and
/// when this host's own name cannot be read.
VORN_API unsigned int VornStringToAddress(const char* text);

/// Writes "address:port" into `buffer` (`VORN_ADDRESS_PORT_TEXT_SIZE` bytes). Returns `buffer`, or
/// null with nothing written for a null buffer.
VORN_API char* IPAndPortToString(unsigned int address, int port, char* buffer);

/// The same for a network address object. It is asked for its port first and for its address
/// second, also when `buffer` is null. Returns null for a null `address`.
VORN_API char* KelNetioAddrToString(KELNetioAddr* address, char* buffer);

/// A time in whole seconds, for a wait. First the fraction is rounded to microseconds. When that is
/// a whole second (from fraction 4294965143 on), the seconds grow by one, unless they are
/// 2147483647. Then the rest of a second is dropped; but when the seconds are 0 and there is a rest
/// (from fraction 2145 on), the result is 1. Negative seconds
/// are treated alike: -1.5 s, which is seconds -2 and a fraction, gives -2.
VORN_API int NETOSSelectTimeout(KELNtpTime timeout);

}  // extern "C"

/// Always 1: multicast is part of every build for this system.
VORN_API int IsMulticastSupported();

/// 1 when `address` lies in 224.0.0.0/4, else 0.
VORN_API int HostIPIsMulticastAddress(unsigned int address);

#endif
