#include "net/miscIPUtils.h"

#include "net/internal/SelectTime.h"
#include "utils/internal/Diagnostics.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

unsigned int NameResolve(const char* name) {
  const hostent* host = gethostbyname(name);
  if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
    DiagnosticPrint(Diagnostic::NOTE, "%s: host %s not found.\n", "VornStringToAddress:", name);
    return 0;
  }
  in_addr address;
  std::memcpy(&address, host->h_addr_list[0], sizeof address);
  return ntohl(address.s_addr);
}

}  // namespace

char* VornHostNameGet(char* buffer, int length) {
  if (buffer == nullptr || length < 0)
    return nullptr;
  return gethostname(buffer, static_cast<std::size_t>(length)) == 0 ? buffer : nullptr;
}

char* VornAddressToString(unsigned int address, char* buffer) {
  if (buffer == nullptr)
    return nullptr;
  if (address == 0)
    return std::strcpy(buffer, "0.0.0.0");
  return std::strcpy(buffer, inet_ntoa(in_addr{htonl(address)}));
}

const char* VornAddressToStringPrintable(unsigned int address, char* buffer) {
  const char* text = VornAddressToString(address, buffer);
  return text != nullptr ? text : "invalid IP address";
}

unsigned int VornStringToAddress(const char* text) {
  // One byte stays out of the system's reach: the name always ends.
  char ownName[VORN_HOST_NAME_SIZE] = {};
  if (text == nullptr)
    text = VornHostNameGet(ownName, VORN_HOST_NAME_SIZE - 1);
  if (text == nullptr)
    return 0;
  unsigned int a = 0;
  unsigned int b = 0;
  unsigned int c = 0;
  unsigned int d = 0;
  if (std::sscanf(text, "%u.%u.%u.%u", &a, &b, &c, &d) == 4)
    return a << 24 | b << 16 | c << 8 | d;
  return NameResolve(text);
}

char* IPAndPortToString(unsigned int address, int port, char* buffer) {
  if (buffer == nullptr)
    return nullptr;
  char dotted[VORN_ADDRESS_TEXT_SIZE];
  std::snprintf(buffer, VORN_ADDRESS_PORT_TEXT_SIZE, "%s:%d",
                VornAddressToStringPrintable(address, dotted), port);
  return buffer;
}

char* KelNetioAddrToString(KELNetioAddr* address, char* buffer) {
  if (address == nullptr)
    return nullptr;
  const int port = address->portGet(address);
  return IPAndPortToString(address->addressGet(address), port, buffer);
}

int NETOSSelectTimeout(KELNtpTime timeout) {
  const SelectTime time = SelectTimeFrom(timeout);
  return time.seconds == 0 && time.microseconds != 0 ? 1 : time.seconds;
}

int IsMulticastSupported() { return 1; }

int HostIPIsMulticastAddress(unsigned int address) { return address >> 28 == 0xE ? 1 : 0; }
