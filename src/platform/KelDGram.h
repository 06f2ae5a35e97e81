#ifndef PLATFORM_KEL_DGRAM_H
#define PLATFORM_KEL_DGRAM_H

#include "platform/KelNetio.h"
#include "platform/VornExport.h"

/// Option codes of `KELDGram::optionSet`. The values also serve as bits of an option mask.
enum KELDGramOption : int {
  KEL_DGRAM_OPT_REUSEADDR = 0x1,        ///< int, non-zero: share the port
  KEL_DGRAM_OPT_SNDBUF = 0x2,           ///< int, bytes
  KEL_DGRAM_OPT_RCVBUF = 0x4,           ///< int, bytes
  KEL_DGRAM_OPT_DROP_MEMBERSHIP = 0x8,  ///< group address, interface address: 4 + 4, network order
  KEL_DGRAM_OPT_ADD_MEMBERSHIP = 0x10,  ///< group address, interface address: 4 + 4, network order
  KEL_DGRAM_OPT_MULTICAST_TTL = 0x20,   ///< one byte
  KEL_DGRAM_OPT_MULTICAST_IF = 0x40,    ///< IPv4 address of the interface, 4, network order
  KEL_DGRAM_OPT_MULTICAST_LOOP = 0x80,  ///< one byte, 0: off
  KEL_DGRAM_OPT_BROADCAST = 0x400,      ///< int, non-zero: may send to broadcast addresses
};

/// What a datagram object holds while its socket is open. Append only: the library reads the first
/// field, and programs are linked against the order of the fields.
struct KELSocketRecord {
  int descriptor = -1;  ///< the system's socket descriptor; always the first field
};

/// The lower layer's datagram object: one UDP socket and the operations on it. Each operation takes
/// the object as its first argument. An object that was never initialised, or was released, has a
/// null `socketRecord` and null operations. One thread at a time uses an object.
///
/// A socket gets the datagrams of a group only on the interfaces on which it has joined the group
/// itself, whatever other sockets of the host have joined on the same port. On a system that has no
/// such option (Linux has it since 2.6.31), and with a descriptor that the holder has put in place
/// without it, the socket gets the datagrams of every group that the host has joined.
///
/// Append only: programs are linked against the order of the fields.
struct KELDGram {
  /// Null when no socket is held. The holder may close the descriptor in the record and store
  /// another open UDP socket in its place, which the object then owns.
  KELSocketRecord* socketRecord = nullptr;

  /// Binds to `localAddress` (host byte order, 0: any) and `port` (0: the system chooses). Returns
  /// the port bound, or 0 with `errno` set.
  int (*bind)(KELDGram* self, unsigned int localAddress, int port) = nullptr;

  /// Sends `length` bytes as one datagram, with one system call. Returns 1 if the system accepted
  /// the whole datagram, else 0 with `errno` set.
  int (*sendTo)(KELDGram* self, KELNetioAddr* destination, char* buffer, int length) = nullptr;

  /// Sets one option; `size` is the size in bytes of what `value` points at. Returns 0 on success,
  /// non-zero on failure with `errno` as the system left it.
  int (*optionSet)(KELDGram* self, int code, void* value, int size) = nullptr;

  /// The system's socket descriptor, or -1 when none is held.
  int (*socketGet)(KELDGram* self) = nullptr;

  /// Receives one datagram that waits, without blocking, with one system call, and stores in
  /// `source` (may be null) where it came from. Returns the datagram's length, which is more than
  /// `capacity` if the rest was cut off; or -1 with `errno` set (EAGAIN: nothing waits). For
  /// programs: the library itself never receives.
  int (*receiveFrom)(KELDGram* self, KELNetioAddr* source, char* buffer, int capacity) = nullptr;
};

/// Prepares an object that holds nothing, in place, and opens its socket. Returns 1, or 0 with the
/// object released.
VORN_API int KelDGramInitialize(KELDGram* self);
/// Closes the socket and forgets the operations. Null and an object that holds nothing are ignored.
VORN_API void KelDGramRelease(KELDGram* self);
/// Makes a ready object on the heap, which the caller owns. Returns null if it cannot be made.
VORN_API KELDGram* KelDGramNew();
/// Releases and frees an object from `KelDGramNew`. Null is ignored.
VORN_API void KelDGramDelete(KELDGram* self);

#endif
