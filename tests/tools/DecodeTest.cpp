#include "vorndiag/Decode.h"

#include <gtest/gtest.h>

// The bytes are those of docs/wire-forms.md.
TEST(Decode, BytesOfEitherOrderAreReadOrRefusedWithAReason) {
  using enum WireForm;
  constexpr VORNCDRByteOrder BIG = VORN_CDR_BIG_ENDIAN, LITTLE = VORN_CDR_LITTLE_ENDIAN;
  // clang-format off
  const struct { WireForm form; VORNCDRByteOrder order; const char *hex, *text, *bits, *error; } rows[] = {
      {TIME, BIG, "ff ff ff fe  80 00 00 00", "-1.500000000", "", ""},
      {TIME, LITTLE, "fe:ff:ff:ff,00000080", "-1.500000000", "", ""},
      {TIME, BIG, "fffffffe800000", "", "", "7 bytes are too short: 8 are needed"},
      {TIME, BIG, "fffffffe8000000000", "-1.500000000", "", "1 byte is left over after 8"},
      {SEQUENCE_NUMBER, BIG, "FFFFFFFEFFFFFFFB", "-(1,5)", "", ""},
      {SEQUENCE_NUMBER, LITTLE, "fefffffffbffffff", "-(1,5)", "", ""},
      {SEQUENCE_NUMBER, LITTLE, "fe", "", "", "1 byte is too short: 8 are needed"},
      {BITMAP, BIG, "00000000 00000005 0000000a c0400000", "(0,5)size 10 11000000,01", "##.......#", ""},
      {BITMAP, LITTLE, "00000000 05000000 0a000000 000040c0", "(0,5)size 10 11000000,01", "##.......#", ""},
      {BITMAP, BIG, "00000000 00000005 00000000", "(0,5)size 0 ", "", ""},
      {BITMAP, BIG, "00000000 00000005 0000", "", "", "10 bytes are too short: 12 are needed"},
      {BITMAP, BIG, "00000000 00000005 00000021 ffffffff", "", "", "16 bytes are too short: 20 are needed"},
      {BITMAP, BIG, "00000000 00000005 00000101 ffffffff", "", "", "size 257 is none of a window, which has 0 to 256 bits"},
      {BITMAP, LITTLE, "00000000 05000000 ffffffff", "", "", "size -1 is none of a window, which has 0 to 256 bits"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.hex);
    const Decoded decoded = DecodedGet(row.form, row.order, HexBytesGet(row.hex).value());
    EXPECT_EQ(decoded.text, row.text);
    EXPECT_EQ(decoded.bits, row.bits);
    EXPECT_EQ(decoded.error, row.error);
  }
  for (const char* wrong : {"", " ", "f", "fff", "f f", "0x80", "8g", "ff-ff"})
    EXPECT_FALSE(HexBytesGet(wrong)) << wrong;
}
