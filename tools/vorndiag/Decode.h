#ifndef VORNDIAG_DECODE_H
#define VORNDIAG_DECODE_H

#include "platform/VornCDRStream.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Wire bytes as the library reads them. Pure functions.

enum class WireForm { TIME, SEQUENCE_NUMBER, BITMAP };

/// The bytes of hexadecimal text, two digits each; blanks, colons and commas between two bytes are
/// passed over. None if there is another character or half a byte, and none for no byte at all.
std::optional<std::vector<char>> HexBytesGet(const std::string& text);

/// What the bytes stand for. Of the fields after `error`, those that the form has are set.
struct Decoded {
  WireForm form = WireForm::TIME;
  std::string error;                ///< why they stand for nothing; empty when they do
  std::vector<std::int64_t> words;  ///< the two words of a time or a sequence number, as stored
  std::string text;                 ///< as the library's `ToString` has it
  std::int64_t number = 0;          ///< the sequence number, or that of a bitmap's first bit
  bool isInfinite = false;          ///< the infinite time
  std::string bits;                 ///< of a bitmap, `#` for one and `.` for zero, the lead first
  std::string tail;                 ///< of a bitmap, the bits of its last word past the window
};

/// Reads one `form` from the start of `bytes`, in `order`, with the library's own operations.
/// Bytes that are left over are an error, since something else was meant then.
Decoded DecodedGet(WireForm form, VORNCDRByteOrder order, std::vector<char> bytes);

#endif
