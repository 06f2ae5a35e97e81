#include "wire/Addresses.h"

#include "net/miscIPUtils.h"

#include <charconv>

unsigned int AddressResolve(const std::string& text) {
  if (text.empty())
    return 0;
  const unsigned int address = VornStringToAddress(text.c_str());
  const bool isDotted = text.find_first_not_of("0123456789.") == std::string::npos;
  return !isDotted || AddressText(address) == text ? address : 0;
}

const char* AddressPortRead(const std::string& text, AddressPort* result) {
  const std::size_t colon = text.find(':');
  if (colon != std::string::npos) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, result->port);
    if (error != std::errc() || stop != end || result->port < 1 || result->port > 65535)
      return "has a port that is not from 1 to 65535";
  }
  result->address = AddressResolve(text.substr(0, colon));
  return result->address != 0 ? nullptr : "is no address and no host name that can be resolved";
}

std::string AddressText(unsigned int address) {
  char text[VORN_ADDRESS_TEXT_SIZE];
  return VornAddressToStringPrintable(address, text);
}

std::string AddressPortText(const AddressPort& place) {
  char text[VORN_ADDRESS_PORT_TEXT_SIZE];
  return IPAndPortToString(place.address, place.port, text);
}
