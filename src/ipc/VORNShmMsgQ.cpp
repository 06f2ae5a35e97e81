// The receiver works with the offsets it has checked and never reads one twice: another process may
// write anything into the header at any time, and must not lead this one out of the ring.

#include "ipc/VORNShmMsgQ.h"

#include "ipc/VORNSemaphores.h"
#include "ipc/internal/QueueAttachments.h"
#include "ipc/internal/QueueLayout.h"
#include "utils/internal/Diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace {

/// Beside a `SendResult`: the mutex was not taken, and no signal was the reason.
constexpr int MUTEX_GONE = -1;

int SegmentKeyGet(int id) { return static_cast<int>(QueueKeyGet(id)); }

// Only for the holder of the mutex. Nothing of the message is visible before the last store.
bool MessageWrite(const QueueAttachment& queue, const char* data, int length) {
  const std::optional<RingOffsets> offsets = RingOffsetsLoad(queue.header, queue.capacity);
  if (!offsets || !MessageFits(RingFreeGet(*offsets, queue.capacity), length))
    return false;
  char* ring = RingGet(queue.header);
  MessageLengthStore(ring, queue.capacity, offsets->write, length);
  const int payload = RingAdvance(offsets->write, MESSAGE_LENGTH_SIZE, queue.capacity);
  RingWrite(ring, queue.capacity, payload, data, length);
  OffsetStore(&queue.header->writeOffset, RingAdvance(payload, length, queue.capacity));
  return true;
}

// A take that fails says so; `errno` tells why.
bool MutexTake(const QueueAttachment& queue) {
  if (NamedMutexTake(queue.mutexId) != 0)
    return true;
  const int error = errno;
  DiagnosticPrint(Diagnostic::SHARED_MEMORY, "VORN: TakeMutex failed.\n");
  errno = error;
  return false;
}

// Whether those who wait for the set are woken: it is removed, or was already.
bool SetRemove(int set) {
  return SemaphoreMutexDelete(set) != 0 || errno == EINVAL || errno == EIDRM;
}

int RingEmpty(const QueueAttachment& queue) {
  if (NamedMutexTake(queue.mutexId) == 0)
    return 0;
  OffsetStore(&queue.header->writeOffset, 0);
  OffsetStore(&queue.header->readOffset, 0);
  return NamedMutexGive(queue.mutexId);
}

// What came of a look for a message.
enum class Look { RECEIVED, EMPTY, FAILED };

// Copies the oldest message and passes it. `copied` is set when there was one.
Look MessageRead(const QueueAttachment& queue, char* buffer, int length, int* copied) {
  const std::optional<RingOffsets> offsets = RingOffsetsLoad(queue.header, queue.capacity);
  if (!offsets)
    return Look::FAILED;
  if (offsets->write == offsets->read)
    return Look::EMPTY;
  char* ring = RingGet(queue.header);
  const std::int32_t sent = MessageLengthLoad(ring, queue.capacity, offsets->read);
  if (!MessageLengthIsSound(sent, RingUsedGet(*offsets, queue.capacity)))
    return Look::FAILED;
  const int payload = RingAdvance(offsets->read, MESSAGE_LENGTH_SIZE, queue.capacity);
  OffsetStore(&queue.header->readOffset, payload);
  *copied = std::min(length, sent);
  if (*copied > 0)
    RingRead(ring, queue.capacity, payload, buffer, *copied);
  OffsetStore(&queue.header->readOffset, RingAdvance(payload, sent, queue.capacity));
  return Look::RECEIVED;
}

}  // namespace

ShmMsgQ::ShmMsgQ(int refCount, int id)
    : _id(id), _refCount(refCount), _capacity(0), _isCreator(0) {}

ShmMsgQ::~ShmMsgQ() = default;

void ShmMsgQ::Print() {
  KelDebugPrint("Shared Message Queue: id %d refCount %d\n", _id, _refCount);
}

ShmMsgQImpl::ShmMsgQImpl(int refCount, int id, unsigned int size)
    : ShmMsgQ(refCount, id), _segmentLength(QueueSegmentLength(size)),
      _attachments(new (std::nothrow) QueueAttachments) {
  _isCreator = 1;
  Initialize();
}

ShmMsgQImpl::ShmMsgQImpl(int refCount, int id)
    : ShmMsgQ(refCount, id), _attachments(new (std::nothrow) QueueAttachments) {
  Initialize();
}

ShmMsgQImpl::~ShmMsgQImpl() { delete _attachments; }

int ShmMsgQImpl::Initialize() {
  if (_attachments == nullptr || _attachments->IsEnding())
    return 0;
  auto* made = new (std::nothrow) QueueAttachment;
  return made != nullptr ? AttachInto(made) : 0;
}

int ShmMsgQImpl::AttachInto(QueueAttachment* made) {
  const int attached = Attach();
  *made = {_shm, _header, _capacity, _semaphoreId, _mutexId};
  // A creator never tries again: its segment is there still, or another creator's is.
  made->isLost = attached == 0 && _isCreator == 0 && _segmentId >= 0;
  if (attached != 0)
    _segmentId = _shm->id;
  if (_attachments->PresentSet(made) && attached != 0 && _isCreator != 0)
    RingEmpty(*made);
  return attached;
}

int ShmMsgQImpl::Attach() {
  if (InitializeSharedMemory() != 0 && InitializeSemaphoreAndMutex() != 0)
    return 1;
  ShMDelete(_shm, _isCreator);
  _shm = nullptr;
  _header = nullptr;
  _capacity = 0;
  return 0;
}

int ShmMsgQImpl::InitializeSharedMemory() {
  const int key = SegmentKeyGet(_id);
  _shm = _isCreator != 0 ? ShMNew(key, _segmentLength) : ShMOpen(key);
  _capacity = _shm != nullptr ? CapacityGet() : 0;
  if (_capacity == 0)
    return 0;
  _header = static_cast<ShmMsgQHeader*>(ShMAddressGet(_shm));
  return 1;
}

int ShmMsgQImpl::InitializeSemaphoreAndMutex() {
  _semaphoreId = NamedSemaphoreNew(SegmentKeyGet(_id), 0);
  if (_semaphoreId == 0)
    return 0;
  _mutexId = NamedMutexNew(static_cast<int>(QueueMutexKeyGet(_id)));
  return _mutexId != 0 ? 1 : 0;
}

int ShmMsgQImpl::WriteSetup() {
  QueueAttachment queue;
  queue.header = _header;
  queue.mutexId = _mutexId;
  return queue.header != nullptr ? RingEmpty(queue) : 0;
}

void ShmMsgQImpl::Uninitialize() {
  _shm = nullptr;
  _header = nullptr;
  if (_attachments != nullptr)
    _attachments->PresentDrop();
}

int ShmMsgQImpl::SpaceGet() const { return _attachments != nullptr ? _attachments->SpaceGet() : 0; }

int ShmMsgQImpl::Send(const char* data, int length) {
  if (data == nullptr || length < 0)
    return 0;
  QueueAttachment* queue = _attachments != nullptr ? _attachments->SenderAdd() : nullptr;
  const bool isLost = queue != nullptr && queue->isLost;
  const int first = isLost ? SEND_LOCK_FAILED : MessageSend(queue, data, length);
  int result = first;
  if (first == SEND_LOCK_FAILED || first == MUTEX_GONE) {
    queue = Renew(queue);
    result = MessageSend(queue, data, length);
  }
  // Without a segment the second attempt still begins with the mutex, and says that it is not
  // there. One that was there, and whose wait a signal ended, is not waited for again in vain.
  if (first == MUTEX_GONE && queue != nullptr && queue->header == nullptr && MutexTake(*queue))
    NamedMutexGive(queue->mutexId);
  if (queue != nullptr)
    _attachments->UserRemove(queue);
  return result == SEND_DONE ? 1 : 0;
}

// The queue may have been destroyed and made again by its owner: by key it is found again. Once for
// all the threads that failed on one attachment, or a creator's second try would find the segment
// that its first one has just made. Whoever does not renew gets what the other thread made.
QueueAttachment* ShmMsgQImpl::Renew(QueueAttachment* stale) {
  // First of all: without memory everything stays as it is, and the next send tries again.
  auto* made = new (std::nothrow) QueueAttachment;
  if (made == nullptr || !_attachments->RenewalBegin(stale)) {
    const bool isRefused = made == nullptr;
    delete made;
    _attachments->UserRemove(stale);
    return isRefused ? nullptr : _attachments->SenderAdd();
  }
  Uninitialize();
  AttachInto(made);
  return _attachments->RenewalEnd();
}

int ShmMsgQImpl::SendInternal(const char* data, int length) {
  if (data == nullptr)
    return SEND_NULL_DATA;
  if (length < 0)
    return SEND_NO_SPACE;
  QueueAttachment* queue = _attachments != nullptr ? _attachments->SenderAdd() : nullptr;
  const int result = MessageSend(queue, data, length);
  if (queue != nullptr)
    _attachments->UserRemove(queue);
  return result == MUTEX_GONE ? SEND_LOCK_FAILED : result;
}

int ShmMsgQImpl::MessageSend(const QueueAttachment* queue, const char* data, int length) {
  if (queue == nullptr || queue->header == nullptr)
    return SEND_NO_SPACE;
  if (!MutexTake(*queue))
    return errno == EINTR ? SEND_LOCK_FAILED : MUTEX_GONE;
  int result = MessageWrite(*queue, data, length) ? SEND_DONE : SEND_NO_SPACE;
  if (result == SEND_DONE && NamedSemaphoreGive(queue->semaphoreId) == 0) {
    DiagnosticPrint(Diagnostic::SHARED_MEMORY, "VORN: ReleaseSemaphore failed.\n");
    result = SEND_LOCK_FAILED;
  }
  NamedMutexGive(queue->mutexId);
  return result;
}

// A give that no message follows costs one turn; no message is missed, for it is looked for first.
// Each turn asks anew which attachment to look at: the queue may have been opened anew meanwhile.
int ShmMsgQImpl::Recv(char* buffer, int length) {
  if (length < 0 || (buffer == nullptr && length > 0))
    return -1;
  for (;;) {
    QueueAttachment* queue = _attachments != nullptr ? _attachments->ReceiverAdd() : nullptr;
    if (queue == nullptr)
      return -1;
    int copied = -1;
    const Look look = MessageRead(*queue, buffer, length, &copied);
    const bool isWoken = look == Look::EMPTY && NamedSemaphoreTake(queue->semaphoreId) != 0;
    _attachments->UserRemove(queue);
    if (!isWoken)
      return copied;
  }
}

int ShmMsgQImpl::IsValid() { return _attachments != nullptr && _attachments->IsAttached() ? 1 : 0; }

// The sets go first: that ends the sends and waits of other threads, which may last for ever when a
// holder of the mutex is dead. They do not attach anew, since the end has begun.
void ShmMsgQImpl::Destroy() {
  if (_attachments == nullptr || !_attachments->EndBegin())
    return;
  const bool sendersLeave = SetRemove(_mutexId);
  const bool receiverLeaves = SetRemove(_semaphoreId);
  LostSegmentRemove();
  _attachments->End(sendersLeave && receiverLeaves);
  _mutexId = 0;
  _semaphoreId = 0;
  _shm = nullptr;
  _header = nullptr;
}

// Where a queue could not be opened anew, the object has detached from a segment that may still be
// there: a creator's always is, since it cannot make it twice. It is still this queue's, unless
// somebody else has removed it: then its key is another one's, or none.
void ShmMsgQImpl::LostSegmentRemove() const {
  if (_shm == nullptr && _segmentId >= 0 && shmget(SegmentKeyGet(_id), 0, 0) == _segmentId)
    shmctl(_segmentId, IPC_RMID, nullptr);
}

// Bytes of the ring; 0 when the attached segment cannot hold a queue. The length word is read once:
// another process can change it between a check and a use.
int ShmMsgQImpl::CapacityGet() const {
  const unsigned int length = ShMLengthGet(_shm);
  return SegmentCheck(_shm->size, length) == SegmentFault::NONE
             ? static_cast<int>(length - QUEUE_HEADER_SIZE)
             : 0;
}
