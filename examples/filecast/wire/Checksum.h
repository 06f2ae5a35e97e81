#ifndef FILECAST_WIRE_CHECKSUM_H
#define FILECAST_WIRE_CHECKSUM_H

#include <array>
#include <cstddef>
#include <cstdint>

/// CRC-64 with the ECMA-182 polynomial, reflected: finds every burst of damage up to 64 bits and
/// misses other damage once in 2^64. It is no protection against somebody who wants it to match.
/// `Checksum(0, whole)` equals feeding the pieces one after the other.
inline std::uint64_t Checksum(std::uint64_t before, const char* bytes, std::size_t length) {
  static constexpr std::array<std::uint64_t, 256> TABLE = [] {
    std::array<std::uint64_t, 256> table{};
    for (std::size_t i = 0; i < 256; ++i) {
      std::uint64_t value = i;
      for (int bit = 0; bit < 8; ++bit)
        value = (value >> 1) ^ ((value & 1) != 0 ? 0xC96C5795D7870F42 : 0);
      table[i] = value;
    }
    return table;
  }();
  std::uint64_t value = ~before;
  for (std::size_t i = 0; i < length; ++i)
    value = (value >> 8) ^
            TABLE[static_cast<std::size_t>((value ^ static_cast<unsigned char>(bytes[i])) & 0xFF)];
  return ~value;
}

#endif
