#ifndef BENCH_SUPPORT_ADDRESS_H
#define BENCH_SUPPORT_ADDRESS_H

#include <cstdint>
#include <netinet/in.h>

/// A socket address; both arguments are in host byte order.
inline sockaddr_in Address(unsigned int address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  return result;
}

#endif
