#include "Clause.h"
#include "LayerObjects.h"

#include <cstring>
#include <utility>

namespace {

constexpr std::uint32_t WORD = 0xA1B2C3D4;
constexpr int CAPACITY = 16;
constexpr int STARTS = 4;

// Bytes for a stream, which begin `start` bytes behind a multiple of 4: a program's buffer may lie
// anywhere.
class Buffer {
public:
  explicit Buffer(int start) : _start(start) { _storage.fill('\x5a'); }
  char* Get() { return &_storage[static_cast<std::size_t>(_start)]; }
  std::string Part(int from, int count) { return {Get() + from, static_cast<std::size_t>(count)}; }

private:
  alignas(std::uint32_t) std::array<char, STARTS - 1 + CAPACITY> _storage;
  int _start;
};

// Where the item at a position begins.
int PlaceOf(int position) { return (position + 3) / 4 * 4; }

// Where in a row of trials a clause was broken.
std::string RowOf(int start, int position) {
  return "position " + std::to_string(position) + ", buffer " + std::to_string(start) +
         " behind a multiple of 4";
}

VORNCDRStream* StreamAt(int position, char* buffer, int capacity, VORNCDRByteOrder order) {
  VORNCDRStream* stream = StreamNew(buffer, capacity, order, position);
  if (stream == nullptr)
    ClauseSkip("no stream begins at position " + std::to_string(position));
  return stream;
}

// A buffer in which `WORD` was written at a position.
struct Written {
  Buffer buffer;
  VORNCDRStream* stream;
  int result;

  explicit Written(VORNCDRByteOrder order, int position = 0, int capacity = CAPACITY, int start = 0)
      : buffer(start), stream(StreamAt(position, buffer.Get(), capacity, order)),
        result(VornCDR4ByteSerialize(stream, &WORD)) {}
};

bool BufferIsTheSecondField() {
  Written written(VORN_CDR_BIG_ENDIAN);
  return written.stream->buffer == written.buffer.Get();
}

bool ItemHasTheByteOrder() {
  ClauseRequire("most significant byte first",
                Written(VORN_CDR_BIG_ENDIAN).buffer.Part(0, 5) == "\xa1\xb2\xc3\xd4\x5a");
  ClauseRequire("least significant byte first",
                Written(VORN_CDR_LITTLE_ENDIAN).buffer.Part(0, 5) == "\xd4\xc3\xb2\xa1\x5a");
  return true;
}

bool ItemIsAligned() {
  for (int start = 0; start < STARTS; ++start)
    for (int position = 1; position <= 4; ++position) {
      Written written(VORN_CDR_BIG_ENDIAN, position, CAPACITY, start);
      ClauseRequire(RowOf(start, position), written.buffer.Part(4, 5) == "\xa1\xb2\xc3\xd4\x5a");
    }
  return true;
}

bool PaddingIsZero() {
  for (int start = 0; start < STARTS; ++start)
    ClauseRequire(RowOf(start, 1),
                  Written(VORN_CDR_BIG_ENDIAN, 1, CAPACITY, start).buffer.Part(0, 4) ==
                      std::string("\x5a\0\0\0", 4));
  return true;
}

// At each place where an item ends behind the capacity: the refusal leaves the bytes as they were.
bool RefusedItemChangesNothing() {
  for (int start = 0; start < STARTS; ++start)
    for (int capacity = 0; capacity < 8; ++capacity)
      for (int position = 0; position <= capacity; ++position) {
        if (PlaceOf(position) + 4 <= capacity)
          continue;
        Written written(VORN_CDR_BIG_ENDIAN, position, capacity, start);
        const std::string row =
            " at " + RowOf(start, position) + ", capacity " + std::to_string(capacity);
        ClauseRequire("the result" + row, written.result == 0);
        ClauseRequire("the bytes" + row,
                      written.buffer.Part(0, CAPACITY) == std::string(CAPACITY, '\x5a'));
        ClauseRequire("the position" + row, VornCDRStreamPositionGet(written.stream) == position);
      }
  return true;
}

bool ItemThatJustFitsIsWritten() {
  for (int start = 0; start < STARTS; ++start) {
    ClauseRequire(RowOf(start, 0), Written(VORN_CDR_BIG_ENDIAN, 0, 4, start).result != 0);
    ClauseRequire(RowOf(start, 3), Written(VORN_CDR_BIG_ENDIAN, 3, 8, start).result != 0);
  }
  return true;
}

// What is read from position `position` of bytes in which `WORD` lies where it belongs.
struct Read {
  std::uint32_t word = 7;
  int result, positionAfter;

  Read(VORNCDRByteOrder order, int position, int capacity, int start = 0) {
    Buffer buffer(start);
    const char* bytes = order == VORN_CDR_BIG_ENDIAN ? "\xa1\xb2\xc3\xd4" : "\xd4\xc3\xb2\xa1";
    std::memcpy(buffer.Get() + PlaceOf(position), bytes, 4);
    VORNCDRStream* stream = StreamAt(position, buffer.Get(), capacity, order);
    result = VornCDR4ByteDeserialize(stream, &word);
    positionAfter = VornCDRStreamPositionGet(stream);
  }
};

bool ItemIsRead() {
  for (const auto order : {VORN_CDR_BIG_ENDIAN, VORN_CDR_LITTLE_ENDIAN})
    for (int start = 0; start < STARTS; ++start)
      for (int position = 0; position <= 4; ++position) {
        const Read read(order, position, CAPACITY, start);
        const std::string row = " at " + RowOf(start, position) +
                                (order == VORN_CDR_BIG_ENDIAN ? ", most" : ", least") +
                                " significant byte first";
        ClauseRequire("the result" + row, read.result != 0);
        ClauseRequire("the item" + row, read.word == WORD);
        ClauseRequire("the position after it" + row, read.positionAfter == PlaceOf(position) + 4);
      }
  return true;
}

bool ShortItemIsNotRead() {
  for (int start = 0; start < STARTS; ++start)
    for (const auto& [position, capacity] : {std::pair{0, 3}, std::pair{2, 7}}) {
      const Read read(VORN_CDR_BIG_ENDIAN, position, capacity, start);
      const std::string row = " at " + RowOf(start, position);
      ClauseRequire("the result" + row, read.result == 0);
      ClauseRequire("the output" + row, read.word == 7);
    }
  return true;
}

bool PositionIsBehindTheItem() {
  ClauseRequire("without padding",
                VornCDRStreamPositionGet(Written(VORN_CDR_BIG_ENDIAN).stream) == 4);
  ClauseRequire("with padding",
                VornCDRStreamPositionGet(Written(VORN_CDR_BIG_ENDIAN, 1).stream) == 8);
  return true;
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
      {"VornCDR4ByteDeserialize", "reads what was written", ItemIsRead},
      {"VornCDR4ByteDeserialize", "returns 0 if bytes are missing, with the output as it was",
       ShortItemIsNotRead},
      {"VornCDRStreamPositionGet", "counts the bytes from the buffer's start",
       PositionIsBehindTheItem},
      {"VornCDRStreamPositionGet", "is 0 for null", NullHasThePositionZero},
  };
}
