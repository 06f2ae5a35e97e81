#ifndef FILECAST_WIRE_CHECKSUM_H
#define FILECAST_WIRE_CHECKSUM_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// A checksum of 64 bits over bytes that come in pieces of any size. It misses damage by chance
/// once in 2^64, which is rarer than that the machine errs. It is no protection against somebody
/// who wants it to match.
///
/// The bytes are taken as words of 64 bits in little-endian order. Word i goes into lane i % 4:
///
///     lane = (lane ^ word) * FACTOR;  lane = lane ^ (lane >> 32);
///
/// The product carries every bit of the word upwards, the shift carries it down again. At the end,
/// zeros fill the last four words, and the number of bytes and then the lanes go through the same
/// step as words of one more lane. Four lanes, since a product waits for the one before it: they
/// are made beside each other, so that the checksum takes far less time than to send the bytes.
class Checksum {
public:
  void Add(const char* bytes, std::size_t length) {
    _length += length;
    if (_waiting > 0) {
      const std::size_t count = std::min(length, STRIDE - _waiting);
      std::memcpy(_stride.data() + _waiting, bytes, count);
      _waiting += count;
      bytes += count;
      length -= count;
      if (_waiting < STRIDE)
        return;
      StrideAdd(_stride.data());
    }
    for (; length >= STRIDE; length -= STRIDE, bytes += STRIDE)
      StrideAdd(bytes);
    std::memcpy(_stride.data(), bytes, length);
    _waiting = length;
  }

  /// Of all bytes so far; more can follow.
  std::uint64_t Get() const {
    Checksum whole = *this;
    std::fill(whole._stride.begin() + static_cast<std::ptrdiff_t>(_waiting), whole._stride.end(),
              '\0');
    if (_waiting > 0)
      whole.StrideAdd(whole._stride.data());
    std::uint64_t sum = WordAdd(0, _length);
    for (const std::uint64_t lane : whole._lanes)
      sum = WordAdd(sum, lane);
    return sum;
  }

private:
  static constexpr std::size_t LANES = 4, WORD = sizeof(std::uint64_t), STRIDE = LANES * WORD;
  static constexpr std::uint64_t FACTOR = 0x9E3779B97F4A7C15;  // odd, its bits without a pattern

  static std::uint64_t WordAdd(std::uint64_t lane, std::uint64_t word) {
    lane = (lane ^ word) * FACTOR;
    return lane ^ (lane >> 32);
  }
  static std::uint64_t WordGet(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, WORD);
    return std::endian::native == std::endian::big ? __builtin_bswap64(word) : word;
  }
  void StrideAdd(const char* bytes) {
    for (std::size_t i = 0; i < LANES; ++i)
      _lanes[i] = WordAdd(_lanes[i], WordGet(bytes + i * WORD));
  }

  std::array<std::uint64_t, LANES> _lanes{};
  std::array<char, STRIDE> _stride{};  ///< bytes that wait until there are enough
  std::size_t _waiting = 0;
  std::uint64_t _length = 0;
};

#endif
