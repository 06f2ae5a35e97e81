#ifndef PLATFORM_VORN_CDR_STREAM_H
#define PLATFORM_VORN_CDR_STREAM_H

#include "platform/VornExport.h"

#include <cstdint>

/// Byte orders of a stream.
enum VORNCDRByteOrder : std::int32_t {
  VORN_CDR_BIG_ENDIAN = 0,     ///< most significant byte first
  VORN_CDR_LITTLE_ENDIAN = 1,  ///< least significant byte first
};

/// A serialiser over a buffer that the caller owns. Items are aligned to their size, counted from
/// the start of the buffer; padding is written as zeros and skipped when reading. An operation that
/// does not fit fails, and then the buffer, the position and the output are as before. One thread
/// at a time uses a stream. Append only: the library reads the second field, and programs are
/// linked against the order of the fields.
struct VORNCDRStream {
  std::int32_t byteOrder = VORN_CDR_BIG_ENDIAN;  ///< a `VORNCDRByteOrder`
  char* buffer = nullptr;                        ///< start of the bytes; always the second field
  int capacity = 0;  ///< bytes that may be written or read, from the start
  int position = 0;  ///< where the next item begins before its alignment
};

/// Lays a stream over `buffer` at position 0. A null buffer or a negative capacity makes a stream
/// on which every operation fails. A null stream is ignored.
VORN_API void VornCDRStreamInitialize(VORNCDRStream* stream, char* buffer, int capacity,
                                      VORNCDRByteOrder byteOrder);

/// Writes the 4-byte item at `item`, a 32-bit integer of either sign, in the stream's byte order.
/// Returns 1, or 0 if it does not fit or an argument is null.
VORN_API int VornCDR4ByteSerialize(VORNCDRStream* stream, const void* item);
/// Reads a 4-byte item into `item`. Returns 1, or 0 if fewer bytes are left or an argument is null.
VORN_API int VornCDR4ByteDeserialize(VORNCDRStream* stream, void* item);

/// Writes `count` bytes as they are, unaligned. Returns 1, or 0 if they do not fit, for a negative
/// count and for a null argument (but `octets` may be null if `count` is 0).
VORN_API int VornCDROctetsSerialize(VORNCDRStream* stream, const void* octets, int count);
/// Reads `count` bytes as they are, unaligned. Returns 1, or 0 if fewer are left, for a negative
/// count and for a null argument (but `octets` may be null if `count` is 0).
VORN_API int VornCDROctetsDeserialize(VORNCDRStream* stream, void* octets, int count);

/// Returns the position: the bytes written or read so far, from the start. 0 for null.
VORN_API int VornCDRStreamPositionGet(const VORNCDRStream* stream);
/// Moves the position. Returns 1; or 0, with nothing changed, if it is not 0 to the capacity, or
/// the stream is null.
VORN_API int VornCDRStreamPositionSet(VORNCDRStream* stream, int position);

#endif
