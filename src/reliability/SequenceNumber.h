#ifndef RELIABILITY_SEQUENCE_NUMBER_H
#define RELIABILITY_SEQUENCE_NUMBER_H

#include "platform/VornExport.h"

#include <cstdint>
#include <cstring>

struct VORNCDRStream;

/// A 64-bit signed sequence number as two words: `high` * 2^32 + `low`. A plain value; it allocates
/// nothing and takes no lock, every operation takes constant time, and all arithmetic wraps. The
/// halves of a pair (`long`, `unsigned long`) are read by their low 32 bits, on every host.
///
/// Size and order of the fields are part of what programs link against: nothing can be added.
class VORN_API SequenceNumber {
public:
  std::int32_t high = 0;  ///< upper half
  std::uint32_t low = 0;  ///< lower half

  /// Bytes that `ToString` may need, terminator included.
  static constexpr int TEXT_SIZE = 26;

  /// The number 0.
  SequenceNumber() = default;
  /// What `Set(high, low)` stores.
  SequenceNumber(long high, unsigned long low);
  /// The number `value`.
  SequenceNumber(int value);

  /// The number with the value `value`. Every 64-bit value has one.
  static SequenceNumber FromInteger(std::int64_t value) {
    const std::uint64_t words = WordsTurn(static_cast<std::uint64_t>(value));
    SequenceNumber number;
    std::memcpy(static_cast<void*>(&number), &words, sizeof words);
    return number;
  }
  /// The value as one integer: `FromInteger(n.IntegerGet())` equals `n`.
  std::int64_t IntegerGet() const {
    std::uint64_t words = 0;
    std::memcpy(&words, this, sizeof words);
    return static_cast<std::int64_t>(WordsTurn(words));
  }

  /// Sets `high` to -1 when `value` is negative and to 0 otherwise, and `low` to the low 32 bits of
  /// `value`. So the number equals every `value` from -4294967296 to 4294967295; where `long` is
  /// wider, the bits above are lost. `FromInteger` takes all 64.
  void Set(long value);
  /// Sets the number from a sign and a magnitude. The sign of `high` applies to the whole: (-1, 5)
  /// is -(2^32 + 5), which is stored as high -2, low 4294967291.
  void Set(long high, unsigned long low);

  /// Adds 1 in place and returns the value before.
  SequenceNumber operator++(int);
  /// Adds `n` in place and returns the new value.
  SequenceNumber Add(int n);
  /// The number plus `n`; it is not changed itself.
  SequenceNumber operator+(int n) const;
  /// The number minus `n`.
  SequenceNumber operator-(int n) const;
  /// The 64-bit sum.
  SequenceNumber operator+(const SequenceNumber& other) const;
  /// The 64-bit difference.
  SequenceNumber operator-(const SequenceNumber& other) const;

  /// The difference without its sign, the same in either order; 2147483647 for a larger one.
  int Distance(const SequenceNumber& other) const;
  /// The magnitude. The most negative number has none; it is returned unchanged.
  SequenceNumber Absolute() const;

  /// Whether both words are equal.
  bool operator==(const SequenceNumber& other) const {
    return high == other.high && low == other.low;
  }
  /// Whether a word differs.
  bool operator!=(const SequenceNumber& other) const { return !(*this == other); }
  /// Whether the 64-bit number is smaller.
  bool operator<(const SequenceNumber& other) const {
    return high != other.high ? high < other.high : low < other.low;
  }
  /// Greater.
  bool operator>(const SequenceNumber& other) const { return other < *this; }
  /// Smaller or equal.
  bool operator<=(const SequenceNumber& other) const { return !(other < *this); }
  /// Greater or equal.
  bool operator>=(const SequenceNumber& other) const { return !(*this < other); }

  /// Bytes that a number takes when it is written at stream position `offset`: 8, and up to 3 of
  /// padding.
  static int ElementSize(int offset);
  /// Writes `high`, then `low`, as two 4-byte items in the stream's byte order. Returns 1, or 0 at
  /// the first item that fails.
  int Serialize(VORNCDRStream* stream) const;
  /// Reads what `Serialize` writes. Returns 1, or 0 at the first item that fails. When the second
  /// one fails, `high` has been replaced.
  int Deserialize(VORNCDRStream* stream);

  /// Writes "(high,low)" into `buffer`, for a negative number "-(high,low)" with the words of its
  /// magnitude, and returns `buffer`; null for a null buffer. The caller provides `TEXT_SIZE`
  /// bytes; `length` is not looked at.
  char* ToString(char* buffer, int length) const;
  /// Prints "(high,low)" with the words as they are stored, at every verbosity. The argument has no
  /// effect.
  void Print(unsigned int unused) const;

private:
  // `high` stands first, as the upper half of an integer does on a big-endian host; on others the
  // halves change places. Both at once, because compilers make vector instructions of that.
  static std::uint64_t WordsTurn(std::uint64_t words) {
    return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? words : words << 32 | words >> 32;
  }
  // Unsigned integers wrap where signed ones would overflow.
  std::uint64_t UnsignedGet() const { return static_cast<std::uint64_t>(IntegerGet()); }
  static SequenceNumber FromUnsigned(std::uint64_t value) {
    return FromInteger(static_cast<std::int64_t>(value));
  }
};

// The arithmetic is inline here, and exported as it always was, for programs that are linked
// against it. SequenceNumber.cpp defines this word as nothing, which makes the exported functions.
#ifndef SEQUENCE_NUMBER_INLINE
#define SEQUENCE_NUMBER_INLINE inline
#endif

SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::operator+(int n) const {
  return FromUnsigned(UnsignedGet() + static_cast<std::uint64_t>(n));
}
SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::operator-(int n) const {
  return FromUnsigned(UnsignedGet() - static_cast<std::uint64_t>(n));
}
SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::operator+(const SequenceNumber& other) const {
  return FromUnsigned(UnsignedGet() + other.UnsignedGet());
}
SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::operator-(const SequenceNumber& other) const {
  return FromUnsigned(UnsignedGet() - other.UnsignedGet());
}
SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::Add(int n) { return *this = *this + n; }
SEQUENCE_NUMBER_INLINE SequenceNumber SequenceNumber::operator++(int) {
  const SequenceNumber before = *this;
  Add(1);
  return before;
}
SEQUENCE_NUMBER_INLINE int SequenceNumber::Distance(const SequenceNumber& other) const {
  // As an unsigned number, larger minus smaller is exact even where the signed difference wraps.
  const bool isLarger = other.IntegerGet() < IntegerGet();
  const std::uint64_t distance =
      isLarger ? UnsignedGet() - other.UnsignedGet() : other.UnsignedGet() - UnsignedGet();
  return distance > INT32_MAX ? INT32_MAX : static_cast<int>(distance);
}

#endif
