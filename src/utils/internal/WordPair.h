#ifndef UTILS_INTERNAL_WORD_PAIR_H
#define UTILS_INTERNAL_WORD_PAIR_H

#include <bit>
#include <cstdint>
#include <cstring>

/// Arithmetic of a 64-bit two's-complement number that is stored as two 32-bit words: seconds and
/// fraction of a time, halves of a sequence number. Carry and borrow between the words are those of
/// the 64-bit number; everything wraps, nothing traps.
///
/// Example: -1.5 s is { -2, 0x80000000 }, joined 0xFFFFFFFE80000000, and its negative joins to
/// 0x0000000180000000, split { 1, 0x80000000 }.
struct WordPair {
  std::int32_t high;
  std::uint32_t low;
};

constexpr std::uint64_t WordPairJoin(WordPair pair) {
  return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(pair.high)) << 32) | pair.low;
}

constexpr WordPair WordPairSplit(std::uint64_t value) {
  return {static_cast<std::int32_t>(static_cast<std::uint32_t>(value >> 32)),
          static_cast<std::uint32_t>(value)};
}

constexpr WordPair WordPairAdd(WordPair a, WordPair b) {
  return WordPairSplit(WordPairJoin(a) + WordPairJoin(b));
}

constexpr WordPair WordPairSubtract(WordPair a, WordPair b) {
  return WordPairSplit(WordPairJoin(a) - WordPairJoin(b));
}

/// The most negative number has no positive counterpart and stays as it is.
constexpr WordPair WordPairNegate(WordPair a) { return WordPairSplit(0 - WordPairJoin(a)); }

constexpr WordPair WordPairMagnitude(WordPair a) { return a.high < 0 ? WordPairNegate(a) : a; }

/// The number that a sign-and-magnitude pair stands for: the sign of `high` applies to the whole,
/// so { -1, 5 } is -(2^32 + 5).
constexpr WordPair WordPairFromMagnitude(std::int32_t high, std::uint32_t low) {
  if (high >= 0)
    return {high, low};
  return WordPairSplit((static_cast<std::uint64_t>(static_cast<std::uint32_t>(high)) << 32) - low);
}

/// The joined number of two words that lie one after the other at `place`, the high one first. One
/// load, and one store: where a processor meets a load of both words after a store of each, it
/// waits until both stores have left it.
inline std::uint64_t WordPairLoad(const void* place) {
  std::uint64_t words = 0;
  std::memcpy(&words, place, sizeof words);
  return std::endian::native == std::endian::big ? words : std::rotl(words, 32);
}

inline void WordPairStore(void* place, std::uint64_t value) {
  const std::uint64_t words =
      std::endian::native == std::endian::big ? value : std::rotl(value, 32);
  std::memcpy(place, &words, sizeof words);
}

#endif
