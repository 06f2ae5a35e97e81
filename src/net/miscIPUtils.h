#ifndef NET_MISC_IP_UTILS_H
#define NET_MISC_IP_UTILS_H

#include "platform/KelNetio.h"
#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// Names, texts and kinds of IPv4 addresses. Everywhere in the library an address is an unsigned
/// 32-bit number in host byte order, the first dotted component in the most significant byte, 0 for
/// none; a port is an int in host byte order.
///
/// No state is kept. Any thread may call these; name resolution is only as safe between threads as
/// the system's `gethostbyname`.

/// 127.0.0.1, the address by which a host reaches itself.
inline constexpr unsigned int VORN_LOOPBACK_ADDRESS = 0x7F000001;
/// The mask of a single host: every bit of an address counts.
inline constexpr unsigned int VORN_HOST_MASK = 0xFFFFFFFF;
/// Bytes, terminator included, that the library reads this host's own name into.
inline constexpr int VORN_HOST_NAME_SIZE = 64;

/// Bytes, terminator included, that the caller provides for an address and for one with a port.
inline constexpr int VORN_ADDRESS_TEXT_SIZE = 16;
inline constexpr int VORN_ADDRESS_PORT_TEXT_SIZE = 28;

extern "C" {

/// Reads this host's name into `buffer` of `length` bytes. Returns `buffer`, or null when the name
/// cannot be read, does not fit with its terminator, or an argument is null or negative.
VORN_API char* VornHostNameGet(char* buffer, int length);

/// Writes the dotted text of `address` into `buffer` (`VORN_ADDRESS_TEXT_SIZE` bytes). Returns
/// `buffer`, or null with nothing written for a null buffer.
VORN_API char* VornAddressToString(unsigned int address, char* buffer);

/// The same, but returns the constant text "invalid IP address" instead of null: always good for
/// %s.
VORN_API const char* VornAddressToStringPrintable(unsigned int address, char* buffer);

/// The address that `text` names: four dotted decimal numbers, or a host name to be resolved. A
/// null `text` means this host. The numbers are neither limited to a byte nor masked, and what
/// follows the fourth is ignored; above 4294967295 a number is what the host's `sscanf` makes of
/// it. Returns 0 when the name cannot be resolved, with a line at level > 0, and when this host's
/// own name cannot be read.
VORN_API unsigned int VornStringToAddress(const char* text);

/// Writes "address:port" into `buffer` (`VORN_ADDRESS_PORT_TEXT_SIZE` bytes). Returns `buffer`, or
/// null with nothing written for a null buffer.
VORN_API char* IPAndPortToString(unsigned int address, int port, char* buffer);

/// The same for a network address, whose port is asked for first and whose address second, also
/// when `buffer` is null. Null for a null address.
VORN_API char* KelNetioAddrToString(KELNetioAddr* address, char* buffer);

/// A time as whole seconds for a wait. The fraction is rounded to microseconds first, and a
/// fraction that becomes a whole second (from 4294965143 on) is one, except after 2147483647
/// seconds; then the rest of a second is dropped. But no seconds and any microsecond at all (from
/// fraction 2145 on) are one second. Negative seconds stay negative.
VORN_API int NETOSSelectTimeout(KELNtpTime timeout);

}  // extern "C"

/// Always 1: multicast is part of every build for this system.
VORN_API int IsMulticastSupported();

/// 1 when `address` lies in 224.0.0.0/4, else 0.
VORN_API int HostIPIsMulticastAddress(unsigned int address);

#endif
