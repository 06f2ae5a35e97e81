#ifndef IPC_VORN_SHMEM_H
#define IPC_VORN_SHMEM_H

#include "platform/VornExport.h"

#include <cstddef>

/// @file
/// Blocks of memory that the processes of one host share, found by a number that they agree on.
/// Each is a System V segment of owner and group (0664). It is attached for reading and writing,
/// which others may not do. It begins with its own usable length: 4 bytes, unsigned, in the host's
/// byte order, written once by its creator. The data area follows at byte 4, and is what callers
/// get.
///
/// Processes attach a segment at different addresses: never put a pointer into one. The library
/// takes no lock; whoever uses the data area keeps others away.

/// Bytes of a segment before its data area.
inline constexpr unsigned int SHM_LENGTH_WORD_SIZE = 4;

/// What one process knows of one segment. Made by `ShMNew` or `ShMOpen`, freed by `ShMDelete`
/// alone.
struct ShMHandle {
  int id;            ///< the kernel's identifier; negative: none
  char* base;        ///< where the segment is attached; null: it is not
  char* data;        ///< `base` + 4, the data area
  std::size_t size;  ///< bytes of the segment as the kernel has it, the length word included
};

/// Makes the segment of `key` (System V key) with a data area of `length` bytes, zeroed, and
/// attaches it. Returns a handle, or null with nothing left behind: without a message when the key
/// or the length is 0 or there is no memory for the handle; with a line at level >= 0 when the key
/// is in use, when the length is above 2^32 - 5 or more than the kernel gives, or when the segment
/// cannot be attached.
VORN_API ShMHandle* ShMNew(int key, unsigned int length);

/// Attaches the segment of `key`. Returns a handle; or null, with a line at level > 1, when there
/// is none, it is being removed, it is too small to hold its length, or it cannot be attached.
VORN_API ShMHandle* ShMOpen(int key);

/// Detaches and frees the handle; with a non-zero `destroy` also removes the segment from the host,
/// whose memory goes when the last process detaches. A null handle is ignored.
VORN_API void ShMDelete(ShMHandle* handle, int destroy);

/// The data area of a handle; null for null.
VORN_API void* ShMAddressGet(ShMHandle* handle);
/// The usable length in bytes, as it stands in the segment; 0 for null. Another process can have
/// damaged it, and every call reads it anew: compare one result with `ShMHandle::size` and use
/// that.
VORN_API unsigned int ShMLengthGet(ShMHandle* handle);

/// Copies `count` bytes from `source` to the start of the data area. Returns 1; or 0 with nothing
/// copied for a null handle, a null pointer with a count, and more than the usable length or the
/// segment itself.
VORN_API int ShMWrite(ShMHandle* handle, const void* source, unsigned int count);
/// Copies `count` bytes from the start of the data area to `destination`, with the same refusals.
VORN_API int ShMRead(ShMHandle* handle, void* destination, unsigned int count);

#endif
