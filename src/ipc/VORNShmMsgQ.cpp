// The receiver works with the offsets it has checked and never reads one twice: another process may
// write anything into the header at any time, and must not lead this one out of the ring.

#include "ipc/VORNShmMsgQ.h"

#include "ipc/VORNSemaphores.h"
#include "ipc/internal/QueueLayout.h"
#include "utils/internal/Diagnostics.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <mutex>
#include <optional>

namespace {

void ReadOffsetSet(ShmMsgQHeader* header, int offset) { OffsetStore(&header->readOffset, offset); }

// The length of the oldest message; none when it reaches beyond what was written.
std::optional<int> MessageLengthGet(ShmMsgQHeader* header, int capacity, RingOffsets offsets) {
  const int used = RingUsedGet(offsets, capacity);
  const std::int32_t length = MessageLengthLoad(RingGet(header), capacity, offsets.read);
  return MessageLengthIsSound(length, used) ? std::optional<int>(length) : std::nullopt;
}

}  // namespace

ShmMsgQ::ShmMsgQ(int refCount, int id)
    : _id(id), _refCount(refCount), _capacity(0), _isCreator(0) {}

ShmMsgQ::~ShmMsgQ() = default;

void ShmMsgQ::Print() {
  KelDebugPrint("Shared Message Queue: id %d refCount %d\n", _id, _refCount);
}

ShmMsgQImpl::ShmMsgQImpl(int refCount, int id, unsigned int size)
    : ShmMsgQ(refCount, id), _segmentLength(QueueSegmentLength(size)) {
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
  const int key = static_cast<int>(QueueKeyGet(_id));
  _shm = _isCreator != 0 ? ShMNew(key, _segmentLength) : ShMOpen(key);
  _capacity = _shm != nullptr ? CapacityGet() : 0;
  if (_capacity == 0)
    return 0;
  _header = static_cast<ShmMsgQHeader*>(ShMAddressGet(_shm));
  return 1;
}

int ShmMsgQImpl::InitializeSemaphoreAndMutex() {
  _semaphoreId = NamedSemaphoreNew(static_cast<int>(QueueKeyGet(_id)), 0);
  if (_semaphoreId == 0)
    return 0;
  _mutexId = NamedMutexNew(static_cast<int>(QueueMutexKeyGet(_id)));
  return _mutexId != 0 ? 1 : 0;
}

int ShmMsgQImpl::WriteSetup() {
  if (NamedMutexTake(_mutexId) == 0)
    return 0;
  // Partner of both: RingStateGet.
  OffsetStore(&_header->writeOffset, 0);
  OffsetStore(&_header->readOffset, 0);
  return NamedMutexGive(_mutexId);
}

void ShmMsgQImpl::Uninitialize() {
  ShMDelete(_shm, 0);
  _shm = nullptr;
  _header = nullptr;
}

int ShmMsgQImpl::SpaceGet() const {
  const std::shared_lock attached(_attachmentLock);
  const std::optional<RingOffsets> state = RingOffsetsLoad(_header, _capacity);
  return state ? RingFreeGet(*state, _capacity) : 0;
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
  const std::optional<RingOffsets> state = RingOffsetsLoad(_header, _capacity);
  if (!state || !MessageFits(RingFreeGet(*state, _capacity), length))
    return SEND_NO_SPACE;
  const std::int32_t word = length;
  char* ring = RingGet(_header);
  RingWrite(ring, _capacity, state->write, reinterpret_cast<const char*>(&word),
            MESSAGE_LENGTH_SIZE);
  const int payload = RingAdvance(state->write, MESSAGE_LENGTH_SIZE, _capacity);
  RingWrite(ring, _capacity, payload, data, length);
  OffsetStore(&_header->writeOffset, RingAdvance(payload, length, _capacity));  // see the top
  return SEND_DONE;
}

int ShmMsgQImpl::Recv(char* buffer, int length) {
  if (buffer == nullptr || length < 0)
    return -1;
  std::shared_lock attached(_attachmentLock);
  std::optional<RingOffsets> state = RingOffsetsLoad(_header, _capacity);
  // A give that no message follows costs one turn; none is lost, for it is looked for first.
  while (state && state->write == state->read) {
    const int semaphore = _semaphoreId;
    attached.unlock();
    if (NamedSemaphoreTake(semaphore) == 0)
      return -1;
    attached.lock();
    state = RingOffsetsLoad(_header, _capacity);
  }
  const std::optional<int> sent =
      state ? MessageLengthGet(_header, _capacity, *state) : std::nullopt;
  if (!sent)
    return -1;
  const int payload = RingAdvance(state->read, MESSAGE_LENGTH_SIZE, _capacity);
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
  return SegmentCheck(_shm->size, length) == SegmentFault::NONE
             ? static_cast<int>(length - QUEUE_HEADER_SIZE)
             : 0;
}
