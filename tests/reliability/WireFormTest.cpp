// The golden bytes are those of docs/wire-forms.md.

#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>

extern "C" {

int __real__Z21VornCDR4ByteSerializeP13VORNCDRStreamPKv(VORNCDRStream* stream, const void* item);
int __real__Z23VornCDR4ByteDeserializeP13VORNCDRStreamPv(VORNCDRStream* stream, void* item);

static int streamCalls = 0;

int __wrap__Z21VornCDR4ByteSerializeP13VORNCDRStreamPKv(VORNCDRStream* stream, const void* item) {
  ++streamCalls;
  return __real__Z21VornCDR4ByteSerializeP13VORNCDRStreamPKv(stream, item);
}

int __wrap__Z23VornCDR4ByteDeserializeP13VORNCDRStreamPv(VORNCDRStream* stream, void* item) {
  ++streamCalls;
  return __real__Z23VornCDR4ByteDeserializeP13VORNCDRStreamPv(stream, item);
}

}  // extern "C"

namespace {

// The aligned bytes of an element, a space between the items.
template <typename Element> std::string Wire(const Element& element, VORNCDRByteOrder order) {
  char bytes[44];
  VORNCDRStream stream{order, bytes, sizeof bytes, 0};
  EXPECT_EQ(element.Serialize(&stream), 1);
  std::string text;
  for (int i = 0; i < stream.position; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, i > 0 && i % 4 == 0 ? " %02x" : "%02x", bytes[i] & 0xff);
    text += byte;
  }
  return text;
}

// Writes and reads with streams of every length. `other` is as long as `element` and differs.
template <typename Element>
void WireCheck(const Element& element, Element& other, const char* big, const char* little) {
  for (const VORNCDRByteOrder order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN}) {
    const std::string golden = order == VORN_CDR_BIG_ENDIAN ? big : little;
    EXPECT_EQ(Wire(element, order), golden);
    char bytes[48];
    VORNCDRStream whole{order, bytes, sizeof bytes, 0};
    element.Serialize(&whole);
    for (int capacity = 0; capacity <= whole.position; ++capacity) {
      const int success = capacity == whole.position ? 1 : 0, calls = capacity / 4 + 1 - success;
      const std::string before = Wire(other, order);
      VORNCDRStream cut{order, bytes, capacity, 0}, again = cut;
      streamCalls = 0;
      EXPECT_EQ(other.Deserialize(&cut) + element.Serialize(&again), 2 * success) << capacity;
      EXPECT_EQ(streamCalls, 2 * calls) << capacity;
      const std::size_t read = std::min(golden.size(), static_cast<std::size_t>(capacity / 4 * 9));
      EXPECT_EQ(Wire(other, order), golden.substr(0, read) + before.substr(read)) << capacity;
    }
  }
}

TEST(WireForm, GoldenBytesInBothOrdersAndEveryTruncation) {
  VORNNtpTime time = VORNNtpTime::FromWords(0x77777777, 0x77777777);
  WireCheck(VORNNtpTime::FromWords(-2, 0x80000000), time, "fffffffe 80000000", "feffffff 00000080");
  SequenceNumber number(0x77777777, 0x77777777);
  WireCheck(SequenceNumber(-1, 5), number, "fffffffe fffffffb", "feffffff fbffffff");
  Bitmap window(10, SequenceNumber(5), 0), other(10, SequenceNumber(3, 3), 1);
  for (const int k : {0, 1, 9})
    window.BitSet(window.lead + k, 1);
  WireCheck(window, other, "00000000 00000005 0000000a c0400000",
            "00000000 05000000 0a000000 000040c0");
  Bitmap full(33, SequenceNumber(1, 5), 1), clear(33, SequenceNumber(3, 3), 0);
  full.BitSet(full.BitMaxGet(), 0);
  WireCheck(full, clear, "00000001 00000005 00000021 ffffffff 7fffffff",
            "01000000 05000000 21000000 ffffffff ffffff7f");
  const Bitmap negative(-1, SequenceNumber(5), 1);
  EXPECT_EQ(Wire(negative, VORN_CDR_BIG_ENDIAN), "00000000 00000005 ffffffff");
}

TEST(WireForm, ElementSizesAreWhatAnElementTakes) {
  const Bitmap window(256, SequenceNumber(0), 0);
  for (int start = 0; start < 9; ++start) {
    char bytes[64];
    const auto end = [&](const auto& element) {
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
    Bitmap window(40, SequenceNumber(5), 1), hostile(0, SequenceNumber(7), 0);
    char bytes[64];
    VORNCDRStream stream{VORN_CDR_LITTLE_ENDIAN, bytes, sizeof bytes, 0};
    hostile.size = size;
    hostile.Serialize(&stream);
    stream.position = streamCalls = 0;
    EXPECT_EQ(window.Deserialize(&stream) + window.size, 0);
    EXPECT_EQ(streamCalls, 3);
    EXPECT_EQ(window.lead, SequenceNumber(7));
  }
}

}  // namespace
