#include "platform/VornCDRStream.h"

#include <bit>
#include <cstring>

namespace {

// Where an item of `count` bytes at this alignment (a power of two) begins, or -1 when it does not
// fit. The sums have 64 bits, so a damaged position cannot overflow them.
int ItemPlace(const VORNCDRStream* stream, int alignment, int count) {
  if (stream == nullptr || stream->buffer == nullptr || stream->position < 0 || count < 0)
    return -1;
  const std::int64_t place = (std::int64_t{stream->position} + alignment - 1) & -alignment;
  return place + count <= stream->capacity ? static_cast<int>(place) : -1;
}

bool SwapIsNeeded(const VORNCDRStream* stream) {
  return (stream->byteOrder == VORN_CDR_LITTLE_ENDIAN) !=
         (std::endian::native == std::endian::little);
}

}  // namespace

void VornCDRStreamInitialize(VORNCDRStream* stream, char* buffer, int capacity,
                             VORNCDRByteOrder byteOrder) {
  if (stream != nullptr)
    *stream = {byteOrder, buffer, buffer != nullptr ? capacity : 0, 0};
}

int VornCDR4ByteSerialize(VORNCDRStream* stream, const void* item) {
  const int place = ItemPlace(stream, 4, 4);
  if (place < 0 || item == nullptr)
    return 0;
  std::uint32_t word;
  std::memcpy(&word, item, sizeof word);
  if (SwapIsNeeded(stream))
    word = __builtin_bswap32(word);
  for (int i = stream->position; i < place; ++i)
    stream->buffer[i] = 0;
  std::memcpy(stream->buffer + place, &word, sizeof word);
  stream->position = place + 4;
  return 1;
}

int VornCDR4ByteDeserialize(VORNCDRStream* stream, void* item) {
  const int place = ItemPlace(stream, 4, 4);
  if (place < 0 || item == nullptr)
    return 0;
  std::uint32_t word;
  std::memcpy(&word, stream->buffer + place, sizeof word);
  if (SwapIsNeeded(stream))
    word = __builtin_bswap32(word);
  std::memcpy(item, &word, sizeof word);
  stream->position = place + 4;
  return 1;
}

int VornCDROctetsSerialize(VORNCDRStream* stream, const void* octets, int count) {
  const int place = ItemPlace(stream, 1, count);
  if (place < 0 || (octets == nullptr && count > 0))
    return 0;
  if (count > 0)
    std::memcpy(stream->buffer + place, octets, static_cast<std::size_t>(count));
  stream->position = place + count;
  return 1;
}

int VornCDROctetsDeserialize(VORNCDRStream* stream, void* octets, int count) {
  const int place = ItemPlace(stream, 1, count);
  if (place < 0 || (octets == nullptr && count > 0))
    return 0;
  if (count > 0)
    std::memcpy(octets, stream->buffer + place, static_cast<std::size_t>(count));
  stream->position = place + count;
  return 1;
}

int VornCDRStreamPositionGet(const VORNCDRStream* stream) {
  return stream != nullptr ? stream->position : 0;
}

int VornCDRStreamPositionSet(VORNCDRStream* stream, int position) {
  if (stream == nullptr || position < 0 || position > stream->capacity)
    return 0;
  stream->position = position;
  return 1;
}
