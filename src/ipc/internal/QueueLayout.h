#ifndef IPC_INTERNAL_QUEUE_LAYOUT_H
#define IPC_INTERNAL_QUEUE_LAYOUT_H

#include "ipc/QueueKeys.h"
#include "ipc/VORNShmMsgQ.h"
#include "ipc/VORNShmem.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

/// What a message queue looks like on the host: its keys, its segment, its ring. The library, the
/// diagnostic command and the tests all work by this file; docs/queue-layout.md tells the same for
/// programs that do not use the library.
///
/// A ring of 17 bytes (a queue of size 16) after a message of 3 bytes that was sent at offset 15:
///
///   offset   0  1  2  3  4  5 ............ 14 15 16
///            L2 L3 a  b  c  .               .  L0 L1     write offset 5, read offset 15
///
/// The 4 bytes of the length and the payload both go on at the start of the ring. 7 bytes are used
/// and 9 are free: one of the 17 always stays free, so that equal offsets mean an empty queue.
///
/// The write offset is stored (release) by the sender that holds the mutex, after the bytes of its
/// message. It is loaded (acquire) by the receiver, which then sees those bytes, and by the next
/// sender. The read offset is stored (release) by the receiver, after its copy of the bytes that it
/// passes. It is loaded (acquire) by senders, which may then write over those bytes.
///
/// Every function here works on values that its caller has loaded once and checked. Another process
/// may write anything into a segment at any time: never load a word again after its check.

/// Bytes of the header at the start of the data area; the ring follows.
inline constexpr std::uint32_t QUEUE_HEADER_SIZE = sizeof(ShmMsgQHeader);
/// Bytes of the length in front of each message.
inline constexpr int MESSAGE_LENGTH_SIZE = 4;

// A lock would be one of this process alone.
static_assert(std::atomic_ref<std::int32_t>::is_always_lock_free &&
              std::atomic_ref<char>::is_always_lock_free);

/// Usable length of a segment for a queue of `size` bytes: the header, the ring and its free byte.
/// Where the ring would have more bytes than an offset can count: a length that no segment has.
constexpr std::uint32_t QueueSegmentLength(std::uint32_t size) {
  return size < INT_MAX ? size + 1U + QUEUE_HEADER_SIZE : UINT32_MAX;
}

/// Why a segment cannot hold a queue.
enum class SegmentFault {
  NONE,
  SEGMENT_TOO_SMALL,      ///< for its length, a header and one byte of ring
  LENGTH_BEYOND_SEGMENT,  ///< the length says more than the segment has
  LENGTH_OF_NO_QUEUE,     ///< the length leaves no ring, or one that offsets cannot count
};

/// Checks a segment of `segmentSize` bytes, as the kernel has it, whose length word says `length`.
/// Where there is no fault, the ring has `length - QUEUE_HEADER_SIZE` bytes.
constexpr SegmentFault SegmentCheck(std::size_t segmentSize, std::uint32_t length) {
  if (segmentSize <= SHM_LENGTH_WORD_SIZE + QUEUE_HEADER_SIZE)
    return SegmentFault::SEGMENT_TOO_SMALL;
  if (length > segmentSize - SHM_LENGTH_WORD_SIZE)
    return SegmentFault::LENGTH_BEYOND_SEGMENT;
  if (length <= QUEUE_HEADER_SIZE || length - QUEUE_HEADER_SIZE > INT_MAX)
    return SegmentFault::LENGTH_OF_NO_QUEUE;
  return SegmentFault::NONE;
}

/// Both offsets, loaded once.
struct RingOffsets {
  int write;
  int read;
};

constexpr bool RingHolds(RingOffsets offsets, int capacity) {
  return offsets.write >= 0 && offsets.write < capacity && offsets.read >= 0 &&
         offsets.read < capacity;
}

constexpr int RingUsedGet(RingOffsets offsets, int capacity) {
  const int used = offsets.write - offsets.read;
  return used < 0 ? used + capacity : used;
}

constexpr int RingFreeGet(RingOffsets offsets, int capacity) {
  return capacity - 1 - RingUsedGet(offsets, capacity);
}

/// `position` after `count` more bytes; both are at most `capacity`. By subtraction: the sum may
/// not fit an int.
constexpr int RingAdvance(int position, int count, int capacity) {
  return position < capacity - count ? position + count : position - (capacity - count);
}

/// Whether a message of `length` bytes, 0 or more, fits into `space` free bytes.
constexpr bool MessageFits(int space, int length) {
  return space >= MESSAGE_LENGTH_SIZE && space - MESSAGE_LENGTH_SIZE >= length;
}

/// Whether a length can be true of a message in `used` bytes, itself included.
constexpr bool MessageLengthIsSound(std::int32_t length, int used) {
  return used >= MESSAGE_LENGTH_SIZE && length >= 0 && length <= used - MESSAGE_LENGTH_SIZE;
}

/// The ring that follows a header.
inline char* RingGet(ShmMsgQHeader* header) {
  return reinterpret_cast<char*>(header) + QUEUE_HEADER_SIZE;
}

inline void OffsetStore(std::int32_t* offset, int value) {
  std::atomic_ref<std::int32_t>(*offset).store(value, std::memory_order_release);
}

/// A snapshot of the offsets of `header`; none where one lies outside the ring or there is no
/// header. It only loads: the segment may be attached for reading.
inline std::optional<RingOffsets> RingOffsetsLoad(const ShmMsgQHeader* header, int capacity) {
  if (header == nullptr)
    return std::nullopt;
  auto* shared = const_cast<ShmMsgQHeader*>(header);
  const RingOffsets offsets{
      std::atomic_ref<std::int32_t>(shared->writeOffset).load(std::memory_order_acquire),
      std::atomic_ref<std::int32_t>(shared->readOffset).load(std::memory_order_acquire)};
  return RingHolds(offsets, capacity) ? std::optional(offsets) : std::nullopt;
}

/// Copies `count` bytes, at most `capacity`, into the ring at `position`, which is inside.
inline void RingWrite(char* ring, int capacity, int position, const char* bytes, int count) {
  const int tail = std::min(capacity - position, count);
  std::memcpy(ring + position, bytes, static_cast<std::size_t>(tail));
  if (tail < count)
    std::memcpy(ring, bytes + tail, static_cast<std::size_t>(count - tail));
}

/// Writes a message's length word at `position`, which is inside; it may be split.
inline void MessageLengthStore(char* ring, int capacity, int position, std::int32_t length) {
  char word[MESSAGE_LENGTH_SIZE];
  std::memcpy(word, &length, sizeof word);
  if (position <= capacity - MESSAGE_LENGTH_SIZE)
    std::memcpy(ring + position, word, sizeof word);
  else
    RingWrite(ring, capacity, position, word, MESSAGE_LENGTH_SIZE);
}

/// The same out of the ring.
inline void RingRead(const char* ring, int capacity, int position, char* bytes, int count) {
  const int tail = std::min(capacity - position, count);
  std::memcpy(bytes, ring + position, static_cast<std::size_t>(tail));
  if (tail < count)
    std::memcpy(bytes + tail, ring, static_cast<std::size_t>(count - tail));
}

/// What the length word at `position` says, true or not. Byte by byte, since it may be split, and
/// atomically, so that the value that is checked is the value that is used. With acquire order, so
/// that an offset loaded after it is no older than what it saw. The bytes meet in a register: a
/// processor that loads four bytes which it has just stored one by one waits for them.
inline std::int32_t MessageLengthLoad(const char* ring, int capacity, int position) {
  std::uint32_t length = 0;
  for (int i = 0; i < MESSAGE_LENGTH_SIZE; ++i) {
    auto* shared = const_cast<char*>(ring + position);
    const char byte = std::atomic_ref<char>(*shared).load(std::memory_order_acquire);
    const int place = std::endian::native == std::endian::big ? MESSAGE_LENGTH_SIZE - 1 - i : i;
    length |= std::uint32_t{static_cast<unsigned char>(byte)} << (CHAR_BIT * place);
    position = RingAdvance(position, 1, capacity);
  }
  return static_cast<std::int32_t>(length);
}

/// What lies between the offsets.
struct RingMessages {
  int count = 0;    ///< good messages, up to the end or to the damage
  int longest = 0;  ///< bytes of the longest of them
  bool isDamaged = false;
  int damageOffset = 0;           ///< where in the ring the damaged message begins
  std::int32_t damageLength = 0;  ///< what its length word says
};

/// Walks from the oldest message to the newest. The result counts only if the read offset, loaded
/// again afterwards, is where it was: otherwise the receiver has moved on and senders may have
/// written over what was walked. `offsets` lie in the ring.
inline RingMessages RingMessagesWalk(const char* ring, int capacity, RingOffsets offsets) {
  RingMessages messages;
  int position = offsets.read;
  for (int left = RingUsedGet(offsets, capacity); left > 0;) {
    const std::int32_t length = MessageLengthLoad(ring, capacity, position);
    if (!MessageLengthIsSound(length, left)) {
      messages.isDamaged = true;
      messages.damageOffset = position;
      messages.damageLength = length;
      return messages;
    }
    ++messages.count;
    messages.longest = std::max(messages.longest, static_cast<int>(length));
    position = RingAdvance(RingAdvance(position, MESSAGE_LENGTH_SIZE, capacity), length, capacity);
    left -= MESSAGE_LENGTH_SIZE + length;
  }
  return messages;
}

#endif
