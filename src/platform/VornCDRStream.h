#ifndef PLATFORM_VORN_CDR_STREAM_H
#define PLATFORM_VORN_CDR_STREAM_H

#include "platform/VornExport.h"

#include <cstdint>

/// Byte orders of a stream.
enum VORNCDRByteOrder : std::int32_t { VORN_CDR_BIG_ENDIAN = 0, VORN_CDR_LITTLE_ENDIAN = 1 };

/// A serialiser over a buffer that the caller owns. Items are aligned to their size, counted from
/// the start of the buffer; padding is written as zeros and skipped when reading. An operation that
/// does not fit fails, and then neither the buffer, the position nor the output has changed. One
/// thread at a time uses a stream.
struct VORNCDRStream {
  std::int32_t byteOrder = VORN_CDR_BIG_ENDIAN;
  char* buffer = nullptr;  ///< start of the bytes; always the second field
  int capacity = 0;        ///< bytes that may be written or read, from the start
  int position = 0;        ///< where the next item begins before its alignment
};

/// Lays a stream over `buffer` at position 0. A null buffer or a negative capacity makes a stream
/// on which every operation fails. A null stream is ignored.
VORN_API void VornCDRStreamInitialize(VORNCDRStream* stream, char* buffer, int capacity,
                                      VORNCDRByteOrder byteOrder);

/// Writes the 4-byte item at `item` in the stream's byte order. Returns 1, or 0 when the stream is
/// full or an argument is null. Items are 32-bit integers of either sign.
VORN_API int VornCDR4ByteSerialize(VORNCDRStream* stream, const void* item);
/// Reads a 4-byte item into `item`. Returns 1, or 0 when the stream is exhausted or an argument is
/// null.
VORN_API int VornCDR4ByteDeserialize(VORNCDRStream* stream, void* item);

/// Writes or reads `count` bytes as they are, unaligned. Return 1, or 0 when they do not fit, for a
/// negative count or a null argument (a null `octets` is accepted with a count of 0).
VORN_API int VornCDROctetsSerialize(VORNCDRStream* stream, const void* octets, int count);
VORN_API int VornCDROctetsDeserialize(VORNCDRStream* stream, void* octets, int count);

/// The position: bytes written or read so far, from the start. 0 for null.
VORN_API int VornCDRStreamPositionGet(const VORNCDRStream* stream);
/// Moves the position. Returns 1, or 0 with nothing changed when it lies outside 0 to the capacity
/// or the stream is null.
VORN_API int VornCDRStreamPositionSet(VORNCDRStream* stream, int position);

#endif
