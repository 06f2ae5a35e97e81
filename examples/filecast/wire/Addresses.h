#ifndef FILECAST_WIRE_ADDRESSES_H
#define FILECAST_WIRE_ADDRESSES_H

#include <string>

/// An IPv4 address and a port, both in host byte order.
struct AddressPort {
  unsigned int address = 0;
  int port = 0;

  bool operator==(const AddressPort& other) const = default;
};

/// The address of a host name or of a dotted address, 0 for none. A dotted address must be written
/// as it is printed: the library alone would take 10.0.0.999 for another one.
unsigned int AddressResolve(const std::string& text);

/// Reads "ADDRESS[:PORT]". Without a port, that of `result` stays. Returns what is wrong with the
/// text, to be said after it, or null.
const char* AddressPortRead(const std::string& text, AddressPort* result);

std::string AddressText(unsigned int address);
std::string AddressPortText(const AddressPort& place);

#endif
