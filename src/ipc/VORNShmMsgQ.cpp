// A ring of 17 bytes (a queue of size 16) after a message of 3 bytes that was sent at offset 15:
//
//   offset   0  1  2  3  4  5 ............ 14 15 16
//            L2 L3 a  b  c  .               .  L0 L1     write offset 5, read offset 15
//
// The four bytes of the length and the payload both run on at the start of the ring. Used are 7
// bytes, free 9: one of the 17 always stays free, so that equal offsets mean an empty queue.
//
// Who stores and loads what:
//
//   write offset   stored (release) by the sender that holds the mutex, behind the message's bytes;
//                  loaded (acquire) by the receiver, which then sees those bytes
//   read offset    stored (release) by the receiver, behind its copy of the bytes passed over;
//                  loaded (acquire) by senders, which may then overwrite them
//
// The receiver works with the offsets it has checked and never reads one twice: another process may
// write anything into the header at any time, and must not lead this one out of the ring.

#include "ipc/VORNShmMsgQ.h"

#include "ipc/VORNSemaphores.h"
#include "utils/internal/Diagnostics.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <mutex>
#include <optional>

namespace {

constexpr int LENGTH_SIZE = 4;
constexpr int HEADER_SIZE = sizeof(ShmMsgQHeader);
constexpr unsigned int BASE_KEY = 0xABBD0000;

using SharedOffset = std::atomic_ref<std::int32_t>;
using SharedByte = std::atomic_ref<char>;
// A lock would be one of this process alone.
static_assert(SharedOffset::is_always_lock_free && SharedByte::is_always_lock_free);

// Keys come in pairs: even for the segment and the semaphore, which have spaces of their own, odd
// for the mutex.
int KeyGet(int id, unsigned int offset) {
  return static_cast<int>(BASE_KEY + 2U * static_cast<unsigned int>(id) + offset);
}

// Usable length of a segment with room for a queue of `size` bytes: header, ring and its free byte.
// Where the ring would have more bytes than an offset can count: a length that no segment has.
unsigned int SegmentLengthOf(unsigned int size) {
  return size < INT_MAX ? size + 1U + HEADER_SIZE : UINT_MAX;
}

// One snapshot of a header whose offsets both lie in the ring; there is none without a header.
struct RingState {
  int writeOffset;
  int readOffset;
};

std::optional<RingState> RingStateGet(ShmMsgQHeader* header, int capacity) {
  if (header == nullptr)
    return std::nullopt;
  const RingState state{
      SharedOffset(header->writeOffset).load(std::memory_order_acquire),  // partner: sender's store
      SharedOffset(header->readOffset).load(std::memory_order_acquire)};  // partner: ReadOffsetSet
  const bool inside = state.writeOffset >= 0 && state.writeOffset < capacity &&
                      state.readOffset >= 0 && state.readOffset < capacity;
  return inside ? std::optional(state) : std::nullopt;
}

int UsedBytes(const RingState& state, int capacity) {
  const int used = state.writeOffset - state.readOffset;
  return used < 0 ? used + capacity : used;
}

int FreeBytes(const RingState& state, int capacity) {
  return capacity - 1 - UsedBytes(state, capacity);
}

bool MessageFits(int space, int length) {
  return space >= LENGTH_SIZE && space - LENGTH_SIZE >= length;
}

// `position` and `count` are at most `capacity`. By subtraction: their sum may not fit an int.
int RingAdvance(int position, int count, int capacity) {
  return position < capacity - count ? position + count : position - (capacity - count);
}

char* RingGet(ShmMsgQHeader* header) { return reinterpret_cast<char*>(header) + HEADER_SIZE; }

void RingWrite(char* ring, int capacity, int position, const char* bytes, int count) {
  const int tail = std::min(capacity - position, count);
  std::memcpy(ring + position, bytes, static_cast<std::size_t>(tail));
  std::memcpy(ring, bytes + tail, static_cast<std::size_t>(count - tail));
}

void RingRead(const char* ring, int capacity, int position, char* bytes, int count) {
  const int tail = std::min(capacity - position, count);
  std::memcpy(bytes, ring + position, static_cast<std::size_t>(tail));
  std::memcpy(bytes + tail, ring, static_cast<std::size_t>(count - tail));
}

void ReadOffsetSet(ShmMsgQHeader* header, int offset) {
  SharedOffset(header->readOffset)
      .store(offset, std::memory_order_release);  // partner: RingStateGet
}

// The length of the message at the read offset; none when it reaches beyond what was written.
std::optional<int> MessageLengthGet(ShmMsgQHeader* header, int capacity, const RingState& state) {
  const int used = UsedBytes(state, capacity);
  if (used < LENGTH_SIZE)
    return std::nullopt;
  // Atomically, so that the value that is checked below is the value that is used.
  char word[LENGTH_SIZE];
  for (int i = 0; i < LENGTH_SIZE; ++i)
    word[i] = SharedByte(RingGet(header)[RingAdvance(state.readOffset, i, capacity)])
                  .load(std::memory_order_relaxed);
  std::int32_t length = 0;
  std::memcpy(&length, word, sizeof length);
  return length >= 0 && length <= used - LENGTH_SIZE ? std::optional<int>(length) : std::nullopt;
}

}  // namespace

ShmMsgQ::ShmMsgQ(int refCount, int id)
    : _id(id), _refCount(refCount), _capacity(0), _isCreator(0) {}

ShmMsgQ::~ShmMsgQ() = default;

void ShmMsgQ::Print() {
  KelDebugPrint("Shared Message Queue: id %d refCount %d\n", _id, _refCount);
}

ShmMsgQImpl::ShmMsgQImpl(int refCount, int id, unsigned int size)
    : ShmMsgQ(refCount, id), _segmentLength(SegmentLengthOf(size)) {
  _isCreator = 1;
  Initialize();
}

ShmMsgQImpl::ShmMsgQImpl(int refCount, int id) : ShmMsgQ(refCount, id) { Initialize(); }

ShmMsgQImpl::~ShmMsgQImpl() { Uninitialize(); }

int ShmMsgQImpl::Initialize() {
  if (InitializeSharedMemory() == 0 || InitializeSemaphoreAndMutex() == 0) {
    ShMDelete(_shm, _isCreator);
    _shm = nullptr;
    _header = nullptr;
    _capacity = 0;
    return 0;
  }
  if (_isCreator != 0)
    WriteSetup();
  return 1;
}

int ShmMsgQImpl::InitializeSharedMemory() {
  const int key = KeyGet(_id, 0);
  _shm = _isCreator != 0 ? ShMNew(key, _segmentLength) : ShMOpen(key);
  _capacity = _shm != nullptr ? CapacityGet() : 0;
  if (_capacity == 0)
    return 0;
  _header = static_cast<ShmMsgQHeader*>(ShMAddressGet(_shm));
  return 1;
}

int ShmMsgQImpl::InitializeSemaphoreAndMutex() {
  _semaphoreId = NamedSemaphoreNew(KeyGet(_id, 0), 0);
  if (_semaphoreId == 0)
    return 0;
  _mutexId = NamedMutexNew(KeyGet(_id, 1));
  return _mutexId != 0 ? 1 : 0;
}

int ShmMsgQImpl::WriteSetup() {
  if (NamedMutexTake(_mutexId) == 0)
    return 0;
  // Partner of both: RingStateGet.
  SharedOffset(_header->writeOffset).store(0, std::memory_order_release);
  SharedOffset(_header->readOffset).store(0, std::memory_order_release);
  return NamedMutexGive(_mutexId);
}

void ShmMsgQImpl::Uninitialize() {
  ShMDelete(_shm, 0);
  _shm = nullptr;
  _header = nullptr;
}

int ShmMsgQImpl::SpaceGet() const {
  const std::shared_lock attached(_attachmentLock);
  const std::optional<RingState> state = RingStateGet(_header, _capacity);
  return state ? FreeBytes(*state, _capacity) : 0;
}

int ShmMsgQImpl::Send(const char* data, int length) {
  std::shared_lock attached(_attachmentLock);
  const unsigned int attachment = _attachment;
  int result = SendInternal(data, length);
  if (result == SEND_LOCK_FAILED) {
    attached.unlock();
    Reinitialize(attachment);
    attached.lock();
    result = SendInternal(data, length);
  }
  return result == SEND_DONE ? 1 : 0;
}

// The queue may have been destroyed and made again by its owner: by key it is found again. Once for
// all the threads that failed on one attachment; a creator's second try would find its own segment.
void ShmMsgQImpl::Reinitialize(unsigned int attachment) {
  const std::unique_lock detached(_attachmentLock);
  if (_attachment != attachment)
    return;
  ++_attachment;
  Uninitialize();
  Initialize();
}

int ShmMsgQImpl::SendInternal(const char* data, int length) {
  if (data == nullptr)
    return SEND_NULL_DATA;
  if (length < 0 || _header == nullptr)
    return SEND_NO_SPACE;
  if (NamedMutexTake(_mutexId) == 0) {
    DiagnosticPrint(Diagnostic::SHARED_MEMORY, "VORN: TakeMutex failed.\n");
    return SEND_LOCK_FAILED;
  }
  int result = MessageWrite(data, length);
  if (result == SEND_DONE && NamedSemaphoreGive(_semaphoreId) == 0) {
    DiagnosticPrint(Diagnostic::SHARED_MEMORY, "VORN: ReleaseSemaphore failed.\n");
    result = SEND_LOCK_FAILED;
  }
  NamedMutexGive(_mutexId);
  return result;
}

// Only for the holder of the mutex. Nothing of the message is visible before the last store.
int ShmMsgQImpl::MessageWrite(const char* data, int length) {
  const std::optional<RingState> state = RingStateGet(_header, _capacity);
  if (!state || !MessageFits(FreeBytes(*state, _capacity), length))
    return SEND_NO_SPACE;
  const std::int32_t word = length;
  char* ring = RingGet(_header);
  RingWrite(ring, _capacity, state->writeOffset, reinterpret_cast<const char*>(&word), LENGTH_SIZE);
  const int payload = RingAdvance(state->writeOffset, LENGTH_SIZE, _capacity);
  RingWrite(ring, _capacity, payload, data, length);
  SharedOffset(_header->writeOffset)
      .store(RingAdvance(payload, length, _capacity), std::memory_order_release);  // see the top
  return SEND_DONE;
}

int ShmMsgQImpl::Recv(char* buffer, int length) {
  if (buffer == nullptr || length < 0)
    return -1;
  std::shared_lock attached(_attachmentLock);
  std::optional<RingState> state = RingStateGet(_header, _capacity);
  // A give that no message follows costs one turn; none is lost, for it is looked for first.
  while (state && state->writeOffset == state->readOffset) {
    const int semaphore = _semaphoreId;
    attached.unlock();
    if (NamedSemaphoreTake(semaphore) == 0)
      return -1;
    attached.lock();
    state = RingStateGet(_header, _capacity);
  }
  const std::optional<int> sent =
      state ? MessageLengthGet(_header, _capacity, *state) : std::nullopt;
  if (!sent)
    return -1;
  const int payload = RingAdvance(state->readOffset, LENGTH_SIZE, _capacity);
  ReadOffsetSet(_header, payload);
  const int copied = std::min(length, *sent);
  RingRead(RingGet(_header), _capacity, payload, buffer, copied);
  ReadOffsetSet(_header, RingAdvance(payload, *sent, _capacity));
  return copied;
}

int ShmMsgQImpl::IsValid() {
  const std::shared_lock attached(_attachmentLock);
  return _shm != nullptr && _header != nullptr ? 1 : 0;
}

// The sets go first, under the shared lock: that ends the sends and waits of other threads, which
// may go on for ever when a holder of the mutex is dead. They do not attach anew, since what they
// were attached to is over.
void ShmMsgQImpl::Destroy() {
  {
    const std::shared_lock attached(_attachmentLock);
    ++_attachment;
    NamedMutexDelete(_mutexId);
    NamedSemaphoreDelete(_semaphoreId);
  }
  const std::unique_lock detached(_attachmentLock);
  _mutexId = 0;
  _semaphoreId = 0;
  ShMDelete(_shm, 1);
  _shm = nullptr;
  _header = nullptr;
}

// Bytes of the ring; 0 when the attached segment is smaller than its length word says, or that is
// too little for a queue or more than offsets can count. The word is read once: another process can
// change it between a check and a use.
int ShmMsgQImpl::CapacityGet() const {
  const unsigned int length = ShMLengthGet(_shm);
  const bool holdsQueue = length > HEADER_SIZE && length - HEADER_SIZE <= INT_MAX &&
                          _shm->size - SHM_LENGTH_WORD_SIZE >= length;
  return holdsQueue ? static_cast<int>(length - HEADER_SIZE) : 0;
}
