#ifndef RELIABILITY_VORN_BITMAP_H
#define RELIABILITY_VORN_BITMAP_H

#include "platform/VornExport.h"
#include "reliability/SequenceNumber.h"

#include <cstdint>

struct VORNCDRStream;

/// A window of up to 256 consecutive sequence numbers, one bit each. Bit k stands for `lead` + k
/// and lies in word k / 32 at position 31 - k % 32, so the lead is the most significant bit of word
/// 0. The words in use are the (size + 31) / 32 first ones. Bits of the last used word past `size`
/// are no part of the window, yet some operations see them, as said below.
///
/// The bitmap owns one block of 8 words, allocated at construction; nothing is allocated later. It
/// has no lock. Windows move between bitmaps by `Copy`.
///
/// A bitmap without that block (constructed with a size above 256, or without memory) holds no
/// bits: queries and changes answer 0 and change nothing, and `ToString` shows lead and size alone.
class VORN_API Bitmap {
public:
  static constexpr int CAPACITY = 256;
  static constexpr int WORD_BITS = 32;
  static constexpr int WORD_COUNT = CAPACITY / WORD_BITS;
  /// Bytes that `ToString` may need, terminator included.
  static constexpr int TEXT_SIZE = 322;

  SequenceNumber lead;   ///< the sequence number of bit 0
  std::int32_t size;     ///< bits in the window
  std::uint32_t* words;  ///< the block, owned; null: none

  /// A window of `size` bits from `lead`, all set when `fill` is non-zero, else all clear. With a
  /// negative `size` or `lead` the bitmap keeps both as given and all its bits are clear.
  Bitmap(int size, const SequenceNumber& lead, int fill);
  ~Bitmap();
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  /// Starts a new window; a `size` above 256 is reduced to it. Every used word is filled whole.
  /// Returns 1, or 0 with nothing changed for a negative size or lead.
  int Init(const SequenceNumber& lead, int size, int fill);

  /// 1 when `sn` lies in the window, else 0.
  int BitInRange(const SequenceNumber& sn) const;
  /// Sets the bit of `sn` for a non-zero `value`, else clears it. Returns 1, or 0 out of range.
  int BitSet(const SequenceNumber& sn, int value);
  /// Stores the bit of `sn`, 0 or 1, in `*value`. Returns 1, or 0 with `*value` unchanged when `sn`
  /// is out of range or `value` null.
  int BitGet(const SequenceNumber& sn, int* value) const;
  /// The sequence number of the last bit: `lead` - 1 for an empty window.
  SequenceNumber BitMaxGet() const;
  /// 1 when some bit of the window is set (non-zero `value`) or clear (zero), else 0.
  int Has(int value);
  /// Finds the first bit from `from` on that equals `value`, which is 0 or 1; nothing equals
  /// another value. Returns 1 with its sequence number in `*result`, or with the one past the
  /// window when there is none; an empty window searched from its lead has its lead there. Returns
  /// 0 with `lead` in `*result` when `from` is out of range, and 0 for a null `result`.
  int BitFirstGet(const SequenceNumber& from, int value, SequenceNumber* result);

  /// Advances the window to `newLead`, dropping the bits before it; past the last bit it becomes
  /// empty. At most 2147483647 numbers per call: a farther lead is not reached. Used words past the
  /// new size hold what the shift left there. Returns 1, or 0 with nothing changed when `newLead`
  /// is before `lead`.
  int LeadMove(const SequenceNumber& newLead);
  /// Makes `sn` the last bit; before the lead, empties the window. The words stay. Returns 1, or 0
  /// with nothing changed past the last bit.
  int Truncate(const SequenceNumber& sn);
  /// Cuts trailing ones off in whole bytes. Reads whole words: with ones past `size` in the last
  /// word, the window can also grow, to the end of that word at most.
  void CompressTrailingOnes();
  /// Inverts every used word, whole.
  void Invert();
  /// Takes over the window of `source`: lead, size and used words. Returns 1.
  int Copy(const Bitmap& source);
  /// 1 when leads, sizes and the bits of the windows are equal, else 0.
  int operator==(const Bitmap& other) const;
  int operator!=(const Bitmap& other) const;

  /// The stream position behind a full window that is written from `offset` on: a position, not a
  /// length.
  static int ElementSize(int offset);
  /// Writes lead, size and the used words whole, each a 4-byte item in the stream's byte order: 12
  /// bytes and 4 per word. Returns 1, or 0 at the first item that fails.
  int Serialize(VORNCDRStream* stream) const;
  /// Reads what `Serialize` writes. Returns 1; 0 with an empty window for a size outside 0 to 256;
  /// 0 at the first item that fails, with what was read before it in place.
  int Deserialize(VORNCDRStream* stream);

  /// Writes the lead's text, "size N " and the bits with a comma after every eighth into `buffer`
  /// and returns it; null for a null buffer. The caller provides `TEXT_SIZE` bytes: `length` is not
  /// consulted.
  char* ToString(char* buffer, int length) const;
};

#endif
