#ifndef FILECAST_WIRE_CHECKSUM_H
#define FILECAST_WIRE_CHECKSUM_H

#include <array>
#include <cstddef>
#include <cstdint>

inline constexpr std::size_t CHECKSUM_STRIDE = 16;  ///< bytes that are taken at once

/// A table for each place of a byte in a stride: what the byte there adds to the remainder.
inline constexpr std::array<std::array<std::uint64_t, 256>, CHECKSUM_STRIDE> CHECKSUM_TABLES = [] {
  std::array<std::array<std::uint64_t, 256>, CHECKSUM_STRIDE> tables{};
  for (std::size_t i = 0; i < 256; ++i) {
    std::uint64_t value = i;
    for (int bit = 0; bit < 8; ++bit)
      value = (value >> 1) ^ ((value & 1) != 0 ? 0xC96C5795D7870F42 : 0);
    tables[0][i] = value;
  }
  for (std::size_t place = 1; place < CHECKSUM_STRIDE; ++place)
    for (std::size_t i = 0; i < 256; ++i) {
      const std::uint64_t before = tables[place - 1][i];
      tables[place][i] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  return tables;
}();

/// CRC-64 with the ECMA-182 polynomial, reflected: finds every burst of damage up to 64 bits and
/// misses other damage once in 2^64. It is no protection against somebody who wants it to match.
/// `Checksum(0, whole)` equals feeding the pieces one after the other.
///
/// Many bytes are taken at once: one after the other they would take as long as to send them.
inline std::uint64_t Checksum(std::uint64_t before, const char* bytes, std::size_t length) {
  const auto byteGet = [&bytes](std::size_t i) {
    return std::uint64_t{static_cast<unsigned char>(bytes[i])};
  };
  const auto rowGet = [](std::size_t table, std::uint64_t row) {
    return CHECKSUM_TABLES[table][static_cast<std::size_t>(row & 0xFF)];
  };
  std::uint64_t value = ~before;
  for (; length >= CHECKSUM_STRIDE; length -= CHECKSUM_STRIDE, bytes += CHECKSUM_STRIDE) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < 8; ++i)
      sum ^= rowGet(CHECKSUM_STRIDE - 1 - i, value >> (8 * i) ^ byteGet(i));
    for (std::size_t i = 8; i < CHECKSUM_STRIDE; ++i)
      sum ^= rowGet(CHECKSUM_STRIDE - 1 - i, byteGet(i));
    value = sum;
  }
  for (; length > 0; --length, ++bytes)
    value = (value >> 8) ^ rowGet(0, value ^ byteGet(0));
  return ~value;
}

#endif
