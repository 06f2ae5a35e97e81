#include "QueueState.h"

#include "ipc/VORNShmMsgQ.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>

#include <sys/sem.h>

namespace {

constexpr std::uint32_t BASE_KEY = 0xABBD0000;
constexpr int LENGTH_SIZE = 4;
constexpr std::uint32_t HEADER_SIZE = sizeof(ShmMsgQHeader);
constexpr int WALK_TRIES = 3;

union SemaphoreArgument {
  int val;
  semid_ds* buf;
  unsigned short* array;
};

// Loads one word of a segment that others write and this process cannot.
std::int32_t WordLoad(const char* address) {
  auto* word = reinterpret_cast<std::int32_t*>(const_cast<char*>(address));
  return std::atomic_ref<std::int32_t>(*word).load(std::memory_order_acquire);
}

/// The parts of an attached segment.
struct View {
  const char* base;
  std::int32_t WriteOffset() const { return WordLoad(base + SHM_LENGTH_WORD_SIZE); }
  std::int32_t ReadOffset() const { return WordLoad(base + SHM_LENGTH_WORD_SIZE + 4); }
  const char* Ring() const { return base + SHM_LENGTH_WORD_SIZE + HEADER_SIZE; }
};

// Byte by byte, as it may be split. With acquire order, so that the read offset loaded after the
// walk is no older than what the walk saw.
std::int32_t LengthRead(const View& view, int position, int capacity) {
  char bytes[LENGTH_SIZE];
  for (char& byte : bytes) {
    auto* shared = const_cast<char*>(view.Ring() + position);
    byte = std::atomic_ref<char>(*shared).load(std::memory_order_acquire);
    position = position + 1 < capacity ? position + 1 : 0;
  }
  std::int32_t length = 0;
  std::memcpy(&length, bytes, sizeof length);
  return length;
}

int Advance(int position, int count, int capacity) {
  return position < capacity - count ? position + count : position - (capacity - count);
}

// Counts the messages between the offsets in `state`, which lie in the ring.
void MessagesCount(const View& view, SegmentState* state) {
  state->walk = Walk::WHOLE;
  state->messages = 0;
  state->longest = 0;
  int position = state->readOffset;
  for (int left = state->used; left > 0;) {
    const std::int32_t length =
        left >= LENGTH_SIZE ? LengthRead(view, position, state->capacity) : -1;
    if (length < 0 || length > left - LENGTH_SIZE) {
      state->walk = Walk::DAMAGED;
      state->damageOffset = position;
      state->damageLength = length;
      return;
    }
    ++state->messages;
    state->longest = std::max<int>(state->longest, length);
    position = Advance(Advance(position, LENGTH_SIZE, state->capacity), length, state->capacity);
    left -= LENGTH_SIZE + length;
  }
}

// The bytes between the offsets stand still until the receiver moves the read offset, so a walk
// counts if that is where it was.
void MessagesWalk(const View& view, SegmentState* state) {
  for (int i = 0; i < WALK_TRIES; ++i) {
    state->readOffset = view.ReadOffset();
    state->writeOffset = view.WriteOffset();
    if (std::min(state->readOffset, state->writeOffset) < 0 ||
        std::max(state->readOffset, state->writeOffset) >= state->capacity) {
      state->walk = Walk::NONE;
      state->problem = "an offset lies outside the ring";
      return;
    }
    state->used = state->writeOffset - state->readOffset;
    if (state->used < 0)
      state->used += state->capacity;
    MessagesCount(view, state);
    if (view.ReadOffset() == state->readOffset)
      return;
  }
  state->walk = Walk::MOVING;
}

void HeaderLook(const View& view, SegmentState* state) {
  const std::size_t size = state->kernel.shm_segsz;
  if (size < SHM_LENGTH_WORD_SIZE + HEADER_SIZE + 1) {
    state->problem = "the segment is too small for a queue";
    return;
  }
  state->length = static_cast<std::uint32_t>(WordLoad(view.base));
  if (state->length > size - SHM_LENGTH_WORD_SIZE)
    state->problem = "the length word says more than the segment has";
  else if (state->length <= HEADER_SIZE || state->length - HEADER_SIZE > INT_MAX)
    state->problem = "the length word says what no queue has";
  if (state->problem != nullptr)
    return;
  state->capacity = static_cast<int>(state->length - HEADER_SIZE);
  MessagesWalk(view, state);
}

SegmentState SegmentLook(std::uint32_t key) {
  SegmentState state;
  state.key = key;
  state.id = shmget(static_cast<key_t>(key), 0, 0);
  if (state.id < 0)
    return state;
  void* base = nullptr;
  if (shmctl(state.id, IPC_STAT, &state.kernel) < 0 ||
      reinterpret_cast<std::intptr_t>(base = shmat(state.id, nullptr, SHM_RDONLY)) == -1) {
    state.error = errno;
    return state;
  }
  HeaderLook(View{static_cast<const char*>(base)}, &state);
  shmdt(base);
  return state;
}

}  // namespace

std::uint32_t QueueKeyGet(int id) { return BASE_KEY + 2U * static_cast<std::uint32_t>(id); }

SetState SetLook(std::uint32_t key) {
  SetState state;
  state.key = key;
  state.id = semget(static_cast<key_t>(key), 1, 0);
  if (state.id < 0)
    return state;
  semid_ds kernel{};
  SemaphoreArgument argument{};
  argument.buf = &kernel;
  state.value = semctl(state.id, 0, GETVAL);
  state.waiting = semctl(state.id, 0, GETNCNT);
  state.pid = semctl(state.id, 0, GETPID);
  if (state.value < 0 || semctl(state.id, 0, IPC_STAT, argument) < 0)
    state.error = errno;
  state.taken = kernel.sem_otime;
  state.given = kernel.sem_ctime;
  return state;
}

QueueState QueueLook(int id) {
  const std::uint32_t key = QueueKeyGet(id);
  return {SegmentLook(key), SetLook(key), SetLook(key + 1)};
}
