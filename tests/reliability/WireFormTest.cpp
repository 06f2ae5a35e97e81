// The golden words are those of docs/wire-forms.md.

#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "support/Wrapped.h"
#include "time/VORNNtpTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <endian.h>
#include <vector>

// Any number but 0 means success.

WRAPPED("_Z21VornCDR4ByteSerializeP13VORNCDRStreamPKv", int, Serialize, VORNCDRStream* stream,
        const void* item) {
  return 2 * SerializeReal(stream, item);
}

WRAPPED("_Z23VornCDR4ByteDeserializeP13VORNCDRStreamPv", int, Deserialize, VORNCDRStream* stream,
        void* item) {
  return 2 * DeserializeReal(stream, item);
}

namespace {

using Words = std::vector<std::uint32_t>;

// The words of an element on the wire, read in `order`.
template <typename Element> Words Wire(const Element& element, VORNCDRByteOrder order) {
  Words words(12);
  VORNCDRStream stream{order, reinterpret_cast<char*>(words.data()), 48, 0};
  EXPECT_EQ(element.Serialize(&stream), 1);
  words.resize(static_cast<unsigned>(stream.position) / 4);
  for (std::uint32_t& word : words)
    word = order == VORN_CDR_BIG_ENDIAN ? be32toh(word) : le32toh(word);
  return words;
}

// Writes and reads with streams of every length. `other` is as long as `element` and differs.
template <typename Element>
void WireCheck(const Element& element, Element& other, const Words& golden) {
  for (const VORNCDRByteOrder order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN}) {
    EXPECT_EQ(Wire(element, order), golden);
    char bytes[48];
    VORNCDRStream whole{order, bytes, sizeof bytes, 0};
    element.Serialize(&whole);
    for (int capacity = 0; capacity <= whole.position; ++capacity) {
      const int success = capacity == whole.position ? 1 : 0;
      Words expected = Wire(other, order);
      std::copy_n(golden.begin(), capacity / 4, expected.begin());
      VORNCDRStream cut{order, bytes, capacity, 0}, again = cut;
      EXPECT_EQ(other.Deserialize(&cut), success) << capacity;
      EXPECT_EQ(element.Serialize(&again), success) << capacity;
      EXPECT_EQ(Wire(other, order), expected) << capacity;
    }
  }
}

TEST(WireForm, GoldenWordsInBothOrdersAndEveryTruncation) {
  VORNNtpTime time = VORNNtpTime::FromWords(0x77777777, 0x77777777);
  WireCheck(VORNNtpTime::FromWords(-2, 0x80000000), time, {0xFFFFFFFE, 0x80000000});
  SequenceNumber number(0x77777777, 0x77777777);
  WireCheck(SequenceNumber(-1, 5), number, {0xFFFFFFFE, 0xFFFFFFFB});
  Bitmap window(10, SequenceNumber(5), 0), other(10, SequenceNumber(3, 3), 1);
  for (const int k : {0, 1, 9})
    window.BitSet(window.lead + k, 1);
  WireCheck(window, other, {0, 5, 10, 0xC0400000});
  Bitmap full(33, SequenceNumber(1, 5), 1), clear(33, SequenceNumber(3, 3), 0);
  full.BitSet(full.BitMaxGet(), 0);
  WireCheck(full, clear, {1, 5, 33, 0xFFFFFFFF, 0x7FFFFFFF});
  Bitmap empty(0, SequenceNumber(5), 0), was(0, SequenceNumber(3, 3), 0);
  WireCheck(empty, was, {0, 5, 0});
  const Bitmap negative(-1, SequenceNumber(5), 1);
  EXPECT_EQ(Wire(negative, VORN_CDR_BIG_ENDIAN), (Words{0, 5, 0xFFFFFFFF}));
}

TEST(WireForm, ElementSizesAreWhatAnElementTakes) {
  const Bitmap window(256, SequenceNumber(0), 0);
  for (int start = 0; start < 9; ++start) {
    const auto end = [start](const auto& element) {
      char bytes[64];
      VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, start};
      EXPECT_EQ(element.Serialize(&stream), 1);
      return stream.position;
    };
    EXPECT_EQ(VORNNtpTime::ElementSize(start), end(VORNNtpTime()) - start);
    EXPECT_EQ(SequenceNumber::ElementSize(start), end(SequenceNumber()) - start);
    EXPECT_EQ(Bitmap::ElementSize(start), end(window));  // a position
  }
  EXPECT_EQ(VORNNtpTime::ElementSize(INT_MAX), 9);
  EXPECT_EQ(Bitmap::ElementSize(INT_MAX), INT_MIN + 44);
}

TEST(WireForm, ABitmapRefusesSizesItCannotHold) {
  for (const int size : {257, -1, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(size);
    Bitmap window(40, SequenceNumber(5), 1);
    std::uint32_t words[] = {0, htole32(7), htole32(static_cast<std::uint32_t>(size)), 0};
    VORNCDRStream stream{VORN_CDR_LITTLE_ENDIAN, reinterpret_cast<char*>(words), 16, 0};
    EXPECT_EQ(window.Deserialize(&stream), 0);
    EXPECT_EQ(window.size, 0);
    EXPECT_EQ(stream.position, 12);
    EXPECT_EQ(window.lead, SequenceNumber(7));
  }
}

}  // namespace
