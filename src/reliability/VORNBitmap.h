#ifndef RELIABILITY_VORN_BITMAP_H
#define RELIABILITY_VORN_BITMAP_H

#include "platform/VornExport.h"
#include "reliability/SequenceNumber.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

struct VORNCDRStream;

/// A window of up to 256 consecutive sequence numbers, one bit for each. Bit k stands for `lead` +
/// k and lies in word k / 32 at position 31 - k % 32, so the lead is the most significant bit of
/// word 0. The first (size + 31) / 32 words are in use. The bits of the last of them that lie past
/// `size` are the tail: they are not part of the window, but some operations see them, as is said
/// there.
///
/// The bitmap owns one block of 8 words, which is allocated at construction; nothing is allocated
/// later. It has no lock: one thread at a time. `Copy` copies a window to another bitmap.
///
/// A bitmap can lack that block: when it is constructed with a size above 256, or without memory.
/// Such a bitmap holds no bits. Queries and changes return 0 and change nothing, and `ToString`
/// shows lead and size only.
///
/// The order of its fields is part of what programs link against: append only.
class VORN_API Bitmap {
public:
  static constexpr int CAPACITY = 256;                     ///< bits in the largest window
  static constexpr int WORD_BITS = 32;                     ///< bits in a word
  static constexpr int WORD_COUNT = CAPACITY / WORD_BITS;  ///< words in the block
  /// Bytes that `ToString` may need, terminator included.
  static constexpr int TEXT_SIZE = 322;

  SequenceNumber lead;   ///< the sequence number of bit 0
  std::int32_t size;     ///< bits in the window
  std::uint32_t* words;  ///< the block, owned; null: none

  /// A window of `size` bits that starts at `lead`. All bits are set when `fill` is non-zero, else
  /// clear. With a negative `size` or `lead` the bitmap keeps both as they are given, and all its
  /// bits are clear.
  Bitmap(int size, const SequenceNumber& lead, int fill);
  /// Frees the block.
  ~Bitmap();
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  /// Starts a new window; a `size` above 256 is reduced to 256. Every used word is filled whole,
  /// the tail too. Returns 1, or 0 with nothing changed for a negative size or lead.
  int Init(const SequenceNumber& lead, int size, int fill);

  /// 1 when `sn` is in the window, else 0.
  int BitInRange(const SequenceNumber& sn) const;
  /// Sets the bit of `sn` for a non-zero `value`, else clears it. Returns 1, or 0 out of range.
  int BitSet(const SequenceNumber& sn, int value);
  /// Stores the bit of `sn`, 0 or 1, in `*value`. Returns 1, or 0 with `*value` unchanged when `sn`
  /// is out of range or `value` is null.
  int BitGet(const SequenceNumber& sn, int* value) const;
  /// The sequence number of the last bit: `lead` - 1 for an empty window.
  SequenceNumber BitMaxGet() const;
  /// 1 when some bit of the window is set (non-zero `value`) or clear (zero), else 0.
  int Has(int value);
  /// Finds the first bit at or after `from` that equals `value`, which is 0 or 1; no bit equals
  /// another value. Returns 1 with the sequence number of the bit in `*result`; when there is none,
  /// with the number after the window's last. So for an empty window and its lead as `from`, it
  /// returns 1 and the lead. Returns 0 with `lead` in `*result` when `from` is out of range, and 0
  /// for a null `result`. `from` and `*result` may be the same object.
  int BitFirstGet(const SequenceNumber& from, int value, SequenceNumber* result);

  /// Advances the window to `newLead` and drops the bits before it. The window ends where it ended:
  /// it becomes shorter, and empty when `newLead` is past its last bit. One call advances by
  /// 2147483647 at most and does not reach a lead that is farther. Returns 1, or 0 with nothing
  /// changed when `newLead` is before `lead`.
  ///
  /// The bits past the new size hold what the shift left there. To go on with a window as wide as
  /// before, raise `size` by hand (to `CAPACITY` at most), then set or clear each bit that was
  /// added with `BitSet`, from the old size on.
  int LeadMove(const SequenceNumber& newLead);
  /// Makes `sn` the last bit of the window. The words stay as they are. A number before the lead
  /// empties the window. Returns 1, or 0 with nothing changed when `sn` is past the last bit.
  int Truncate(const SequenceNumber& sn);
  /// Cuts ones off the end of the window, in whole bytes. It reads whole words: when the tail holds
  /// ones, the window can also grow, at most to the end of its last word. The tail of a window that
  /// was received is what the peer sent. Whoever compresses such a window trusts the peer with it:
  /// zeros there keep ones from being cut off, and ones there make the window grow.
  void CompressTrailingOnes();
  /// Inverts every used word whole, the tail too.
  void Invert();
  /// Copies the window of `source`: lead, size and used words. Returns 1, or 0 with nothing changed
  /// when a block is missing.
  int Copy(const Bitmap& source);
  /// 1 when leads, sizes and the bits of the windows are equal, else 0. Tails do not count.
  int operator==(const Bitmap& other) const;
  /// 0 when `operator==` gives 1, else 1.
  int operator!=(const Bitmap& other) const;

  /// The stream position after a full window that is written at position `offset`. It is a
  /// position, not a length.
  static int ElementSize(int offset);
  /// Writes the lead, the size and the used words whole, each word as a 4-byte item in the stream's
  /// byte order: 12 bytes, and 4 for each used word. Returns 1, or 0 at the first item that fails.
  int Serialize(VORNCDRStream* stream) const;
  /// Reads what `Serialize` writes; the tail is whatever the peer sent. Returns 1. For a size
  /// outside 0 to 256, returns 0 with the lead that was read and an empty window. At the first item
  /// that fails, returns 0; the items before it have been read into their fields.
  int Deserialize(VORNCDRStream* stream);

  /// Writes the text of the lead, "size N " and the bits, with a comma between every eight, into
  /// `buffer` and returns it; null for a null buffer. The caller provides `TEXT_SIZE` bytes;
  /// `length` is not looked at.
  char* ToString(char* buffer, int length) const;

private:
  // Which bit stands for `sn`; -1 when none does. A window that would go past the largest number
  // holds no bit at all.
  int BitFind(const SequenceNumber& sn) const {
    if (words == nullptr || size <= 0)
      return -1;
    const int bits = std::min<std::int32_t>(size, CAPACITY);
    const std::uint64_t distance =
        static_cast<std::uint64_t>(sn.IntegerGet()) - static_cast<std::uint64_t>(lead.IntegerGet());
    return distance < static_cast<unsigned int>(bits) && lead.IntegerGet() <= INT64_MAX - bits
               ? static_cast<int>(distance)
               : -1;
  }
  // The bits from k on, a multiple of 64, as one number: the bit of k on top. A bit is set where
  // the window's bit equals `value`. The block always has both words.
  std::uint64_t EqualBitsGet(int k, bool value) const {
    std::uint64_t pair = 0;
    std::memcpy(&pair, words + k / WORD_BITS, sizeof pair);
    if (__BYTE_ORDER__ != __ORDER_BIG_ENDIAN__)
      pair = pair << WORD_BITS | pair >> WORD_BITS;
    return value ? pair : ~pair;
  }
  // The first k at or after `from`, which is in the window, that equals `value`, or `size` when
  // there is none. It searches the whole block: what it finds past the window lies past every bit
  // of it, and a test less for each step counts more than the steps.
  int FirstBitFind(int from, bool value) const {
    int k = from - from % PAIR_BITS;
    std::uint64_t found = EqualBitsGet(k, value) & UINT64_MAX >> (from - k);
    while (found == 0 && (k += PAIR_BITS) < CAPACITY)
      found = EqualBitsGet(k, value);
    return found != 0 ? std::min<std::int32_t>(k + __builtin_clzll(found), size) : size;
  }
  static constexpr int PAIR_BITS = 2 * WORD_BITS;
};

// The searches are inline here, and exported as they always were, for programs that are linked
// against them. VORNBitmap.cpp defines this word as nothing, which makes the exported functions.
#ifndef BITMAP_INLINE
#define BITMAP_INLINE inline
#endif

BITMAP_INLINE int Bitmap::Has(int value) {
  if (words == nullptr || size <= 0)
    return 0;
  if (size < CAPACITY)
    return FirstBitFind(0, value != 0) < size ? 1 : 0;
  // The usual window has no tail, and all of it is looked at without a branch.
  std::uint64_t equal = 0;
  for (int k = 0; k < CAPACITY; k += PAIR_BITS)
    equal |= EqualBitsGet(k, value != 0);
  return equal != 0 ? 1 : 0;
}

BITMAP_INLINE int Bitmap::BitFirstGet(const SequenceNumber& from, int value,
                                      SequenceNumber* result) {
  if (result == nullptr)
    return 0;
  // Before the result is written, which may be the same object as `from`.
  const int first = BitFind(from);
  const bool isEnd = words != nullptr && size == 0 && from == lead;
  *result = lead;
  if (first < 0)
    return isEnd ? 1 : 0;
  *result = lead + (value == 0 || value == 1 ? FirstBitFind(first, value != 0) : size);
  return 1;
}

#endif
