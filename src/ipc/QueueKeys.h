#ifndef IPC_QUEUE_KEYS_H
#define IPC_QUEUE_KEYS_H

#include <cstdint>

/// @file
/// The System V keys of a message queue. A program that uses a queue does not need them; one that
/// wants to know why a queue is refused, or who made it, looks at the host's objects by them.
/// Cast a key to `key_t` for a system call.

/// The key of the segment and of the semaphore of queue 0. Segments and sets have key spaces of
/// their own, so the two share it.
inline constexpr std::uint32_t QUEUE_BASE_KEY = 0xABBD0000;

/// The key of the segment and of the semaphore of queue `id`. It is always an even number above the
/// base, in 32-bit arithmetic that wraps, so queue `id` and queue `id` + 2^31 are the same queue.
constexpr std::uint32_t QueueKeyGet(int id) {
  return QUEUE_BASE_KEY + 2U * static_cast<std::uint32_t>(id);
}

/// The key of the mutex of queue `id`: the odd one that follows.
constexpr std::uint32_t QueueMutexKeyGet(int id) { return QueueKeyGet(id) + 1U; }

/// The id of the queue to which an object with `key` would belong, from -2^30 to 2^30 - 1.
constexpr int QueueIdOfKey(std::uint32_t key) {
  return static_cast<std::int32_t>(key - QUEUE_BASE_KEY) >> 1;
}

#endif
