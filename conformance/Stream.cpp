#include "Clause.h"
#include "LayerObjects.h"

namespace {

constexpr std::uint32_t WORD = 0xA1B2C3D4;
constexpr int CAPACITY = 16;

// The bytes of a buffer in which `WORD` was written at a position.
struct Written {
  std::string bytes = std::string(CAPACITY, '\x5a');
  VORNCDRStream* stream;
  int result;

  explicit Written(VORNCDRByteOrder order, int position = 0, int capacity = CAPACITY)
      : stream(StreamNew(bytes.data(), capacity, order, position)) {
    if (stream == nullptr)
      ClauseSkip("no stream begins at position " + std::to_string(position));
    result = VornCDR4ByteSerialize(stream, &WORD);
  }
};

bool BufferIsTheSecondField() {
  const Written written(VORN_CDR_BIG_ENDIAN);
  return written.stream->buffer == written.bytes.data();
}

bool ItemHasTheByteOrder() {
  return Written(VORN_CDR_BIG_ENDIAN).bytes.substr(0, 5) == "\xa1\xb2\xc3\xd4\x5a" &&
         Written(VORN_CDR_LITTLE_ENDIAN).bytes.substr(0, 5) == "\xd4\xc3\xb2\xa1\x5a";
}

bool ItemIsAligned() {
  for (int position = 1; position <= 4; ++position)
    if (Written(VORN_CDR_BIG_ENDIAN, position).bytes.substr(4, 5) != "\xa1\xb2\xc3\xd4\x5a")
      return false;
  return true;
}

bool PaddingIsZero() {
  return Written(VORN_CDR_BIG_ENDIAN, 1).bytes.substr(0, 4) == std::string("\x5a\0\0\0", 4);
}

// At each place where an item ends behind the capacity: the refusal leaves the bytes as they were.
bool RefusedItemChangesNothing() {
  for (int capacity = 0; capacity < 8; ++capacity)
    for (int position = 0; position <= capacity; ++position) {
      if ((position + 3) / 4 * 4 + 4 <= capacity)
        continue;
      const Written written(VORN_CDR_BIG_ENDIAN, position, capacity);
      if (written.result != 0 || written.bytes != std::string(CAPACITY, '\x5a') ||
          VornCDRStreamPositionGet(written.stream) != position)
        return false;
    }
  return true;
}

bool ItemThatJustFitsIsWritten() {
  return Written(VORN_CDR_BIG_ENDIAN, 0, 4).result != 0 &&
         Written(VORN_CDR_BIG_ENDIAN, 3, 8).result != 0;
}

std::uint32_t WordRead(VORNCDRByteOrder order, int position, int capacity, int* result) {
  std::string bytes = Written(order, position).bytes;
  std::uint32_t word = 7;
  *result = VornCDR4ByteDeserialize(StreamNew(bytes.data(), capacity, order, position), &word);
  return word;
}

bool ItemIsReadAgain() {
  for (const auto order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN})
    for (int position = 0; position <= 4; ++position) {
      int result = 0;
      if (WordRead(order, position, CAPACITY, &result) != WORD || result == 0)
        return false;
    }
  return true;
}

bool ShortItemIsNotRead() {
  int result = 1;
  return WordRead(VORN_CDR_BIG_ENDIAN, 0, 3, &result) == 7 && result == 0 &&
         WordRead(VORN_CDR_BIG_ENDIAN, 2, 7, &result) == 7 && result == 0;
}

bool PositionIsBehindTheItem() {
  return VornCDRStreamPositionGet(Written(VORN_CDR_BIG_ENDIAN).stream) == 4 &&
         VornCDRStreamPositionGet(Written(VORN_CDR_BIG_ENDIAN, 1).stream) == 8;
}

// `VORNDGram::SendTo` asks before the datagram object refuses the null buffer.
bool NullHasThePositionZero() { return VornCDRStreamPositionGet(nullptr) == 0; }

}  // namespace

Clauses StreamClauses() {
  return {
      {"VornCDR4ByteSerialize", "leaves the buffer's start in the second field",
       BufferIsTheSecondField},
      {"VornCDR4ByteSerialize", "writes in the stream's byte order", ItemHasTheByteOrder},
      {"VornCDR4ByteSerialize", "begins at a multiple of 4 from the buffer's start", ItemIsAligned},
      {"VornCDR4ByteSerialize", "writes zeros before it", PaddingIsZero},
      {"VornCDR4ByteSerialize", "writes an item that just fits, and says so",
       ItemThatJustFitsIsWritten},
      {"VornCDR4ByteSerialize", "returns 0 for an item that does not fit, with nothing changed",
       RefusedItemChangesNothing},
      {"VornCDR4ByteDeserialize", "reads what was written", ItemIsReadAgain},
      {"VornCDR4ByteDeserialize", "returns 0 if bytes are missing, with the output as it was",
       ShortItemIsNotRead},
      {"VornCDRStreamPositionGet", "counts the bytes from the buffer's start",
       PositionIsBehindTheItem},
      {"VornCDRStreamPositionGet", "is 0 for null", NullHasThePositionZero},
  };
}
