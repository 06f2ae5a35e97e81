#include "ipc/internal/QueueAttachments.h"

#include "ipc/VORNSemaphores.h"
#include "ipc/internal/QueueLayout.h"

#include <cerrno>
#include <utility>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace {

// Whether the oldest message can be received. Damage counts as none: it could never be passed.
bool MessageWaits(const QueueAttachment& attachment) {
  const auto offsets = RingOffsetsLoad(attachment.header, attachment.capacity);
  // In an empty ring a sender may be writing just where the length would be.
  if (!offsets || offsets->write == offsets->read)
    return false;
  const std::int32_t length =
      MessageLengthLoad(RingGet(attachment.header), attachment.capacity, offsets->read);
  return MessageLengthIsSound(length, RingUsedGet(*offsets, attachment.capacity));
}

// Detaches what no thread can find any more. Returns how many there were.
int ListDelete(QueueAttachment* list) {
  int count = 0;
  while (QueueAttachment* attachment = list) {
    list = attachment->next;
    ShMDelete(attachment->shm, 0);
    delete attachment;
    ++count;
  }
  return count;
}

}  // namespace

class QueueAttachments::Lock {
public:
  explicit Lock(const QueueAttachments& attachments) : _lock(attachments._lock) {
    pthread_mutex_lock(&_lock);
  }
  ~Lock() { pthread_mutex_unlock(&_lock); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

private:
  pthread_mutex_t& _lock;
};

QueueAttachments::~QueueAttachments() {
  ListDelete(_present);
  ListDelete(_kept);
  pthread_cond_destroy(&_changed);
  pthread_mutex_destroy(&_lock);
}

bool QueueAttachments::IsAttached() const {
  const Lock lock(*this);
  return _present != nullptr && _present->header != nullptr;
}

bool QueueAttachments::IsEnding() const {
  const Lock lock(*this);
  return _isEnding;
}

// Under the lock, which keeps the segment attached for these two loads.
int QueueAttachments::SpaceGet() const {
  const Lock lock(*this);
  if (_present == nullptr)
    return 0;
  const auto offsets = RingOffsetsLoad(_present->header, _present->capacity);
  return offsets ? RingFreeGet(*offsets, _present->capacity) : 0;
}

QueueAttachment* QueueAttachments::SenderAdd() {
  const Lock lock(*this);
  UserNote();
  return PresentUse();
}

QueueAttachment* QueueAttachments::ReceiverAdd() {
  QueueAttachment* finished = nullptr;
  QueueAttachment* used = nullptr;
  {
    const Lock lock(*this);
    UserNote();
    _isReceived = true;
    used = KeptUse(&finished);
    if (used == nullptr) {
      QueueAttachment* const present = PresentUse();
      // That may have waited for a renewal, during which a sender's last message went into what is
      // stale by now, and there was no semaphore to tell of it.
      used = KeptUse(&finished);
      if (used == nullptr)
        used = present;
      else if (present != nullptr && UseEnd(present))
        FinishedAdd(&finished, present);
    }
  }
  FinishedDelete(finished);
  return used;
}

// Leaves `errno` as it is: it tells the caller's caller why a wait failed. The lock does not change
// it.
void QueueAttachments::UserRemove(QueueAttachment* attachment) {
  QueueAttachment* finished = nullptr;
  int semaphore = 0;
  {
    const Lock lock(*this);
    if (UseEnd(attachment))
      FinishedAdd(&finished, attachment);
    else if (attachment->isKept)
      semaphore = KeptSemaphoreGet();
  }
  if (finished == nullptr && semaphore == 0)
    return;
  const int error = errno;
  FinishedDelete(finished);
  if (semaphore != 0)
    NamedSemaphoreGive(semaphore);
  errno = error;
}

bool QueueAttachments::RenewalBegin(QueueAttachment* stale) {
  const Lock lock(*this);
  if (_isEnding || _renewal != Renewal::NONE || stale != _present)
    return false;
  _renewal = Renewal::ACQUIRING;
  UseEnd(stale);
  return true;
}

QueueAttachment* QueueAttachments::RenewalEnd() {
  QueueAttachment* finished = nullptr;
  QueueAttachment* used = nullptr;
  int semaphore = 0;
  {
    const Lock lock(*this);
    _renewal = Renewal::NONE;
    for (Waiter* waiter = _waiters; waiter != nullptr; waiter = waiter->next) {
      waiter->given = PresentUse();
      waiter->isDone = true;
    }
    _waiters = nullptr;
    pthread_cond_broadcast(&_changed);
    used = PresentUse();
    semaphore = KeptSemaphoreGet();
    if (UseEnd(_renewed))
      FinishedAdd(&finished, _renewed);
    _renewed = nullptr;
  }
  FinishedDelete(finished);
  if (semaphore != 0)
    NamedSemaphoreGive(semaphore);
  return used;
}

void QueueAttachments::PresentDrop() {
  QueueAttachment* finished = nullptr;
  {
    const Lock lock(*this);
    QueueAttachment* const dropped = _present;
    _present = nullptr;
    if (dropped == nullptr)
      return;
    // A thread alone has given up what it did not receive; where there are more, one of them has
    // been told that its message was sent, and another one waits for it.
    if (_isShared && _isReceived && (dropped->users > 0 || MessageWaits(*dropped)))
      KeptAppend(dropped);
    else if (dropped->users == 0)
      FinishedAdd(&finished, dropped);
    if (_keptCount > KEPT_LIMIT) {
      QueueAttachment* const oldest = _kept;
      KeptUnlink(oldest);
      if (oldest->users == 0)
        FinishedAdd(&finished, oldest);
    }
  }
  FinishedDelete(finished);
}

bool QueueAttachments::PresentSet(QueueAttachment* made) {
  PresentDrop();
  QueueAttachment* finished = nullptr;
  bool isUsed = true;
  {
    const Lock lock(*this);
    // What a signal made stale is the same segment: its messages are seen through the new one.
    if (made->shm != nullptr)
      KeptUnlinkSegment(made->shm->id, &finished);
    if (_isEnded)
      FinishedAdd(&finished, made);
    else
      _present = made;
    if (_renewal == Renewal::ACQUIRING) {
      _renewal = Renewal::SETTING_UP;
      _renewed = UseBegin(made);
    }
    isUsed = !_isEnding;
    if (_isEnding)
      pthread_cond_broadcast(&_changed);
  }
  FinishedDelete(finished);
  return isUsed;
}

bool QueueAttachments::EndBegin() {
  const Lock lock(*this);
  if (_isEnding) {
    while (!_isEnded)
      Wait();
    return false;
  }
  _isEnding = true;
  while (_renewal == Renewal::ACQUIRING)
    Wait();
  return true;
}

void QueueAttachments::End(bool allLeave) {
  QueueAttachment* finished = nullptr;
  ShMHandle* last = nullptr;
  int usedSegment = -1;
  {
    const Lock lock(*this);
    while (allLeave && (_users > 0 || _renewal != Renewal::NONE))
      Wait();
    while (_kept != nullptr) {
      QueueAttachment* const kept = _kept;
      KeptUnlink(kept);
      if (kept->users == 0)
        FinishedAdd(&finished, kept);
    }
    if (_present != nullptr && _present->users == 0) {
      last = std::exchange(_present->shm, nullptr);
      FinishedAdd(&finished, _present);
    } else if (_present != nullptr && _present->shm != nullptr) {
      usedSegment = _present->shm->id;
    }
    _present = nullptr;
  }
  ListDelete(finished);
  ShMDelete(last, 1);
  if (usedSegment >= 0)
    shmctl(usedSegment, IPC_RMID, nullptr);
  const Lock lock(*this);
  _isEnded = true;
  pthread_cond_broadcast(&_changed);
}

QueueAttachment* QueueAttachments::UseBegin(QueueAttachment* attachment) {
  if (attachment == nullptr)
    return nullptr;
  ++attachment->users;
  ++_users;
  return attachment;
}

// Returns whether nobody can find the attachment any more.
bool QueueAttachments::UseEnd(QueueAttachment* attachment) {
  --attachment->users;
  UsersLeave(1);
  if (attachment == _present || attachment->users > 0)
    return false;
  if (attachment->isKept && !MessageWaits(*attachment))
    KeptUnlink(attachment);
  return !attachment->isKept;
}

// The present queue's semaphore, which the receiver may sleep beside although messages are left in
// a kept attachment: nobody else tells it of them. 0, which a give refuses, where there are none.
int QueueAttachments::KeptSemaphoreGet() const {
  return _kept != nullptr && _present != nullptr ? _present->semaphoreId : 0;
}

void QueueAttachments::UsersLeave(int count) {
  _users -= count;
  if (_isEnding && _users == 0)
    pthread_cond_broadcast(&_changed);
}

// What is to be detached counts as a user until it is: the end must come after that.
void QueueAttachments::FinishedAdd(QueueAttachment** finished, QueueAttachment* attachment) {
  attachment->next = *finished;
  *finished = attachment;
  ++_users;
}

void QueueAttachments::FinishedDelete(QueueAttachment* finished) {
  if (finished == nullptr)
    return;
  const int count = ListDelete(finished);
  const Lock lock(*this);
  UsersLeave(count);
}

// Each waiter gets the result of the renewal that it has waited for, even if the next one has begun
// when it wakes: renewals without pause hold nobody up.
QueueAttachment* QueueAttachments::PresentUse() {
  if (_isEnding)
    return nullptr;
  if (_renewal == Renewal::NONE)
    return UseBegin(_present);
  Waiter waiter;
  waiter.next = _waiters;
  _waiters = &waiter;
  while (!waiter.isDone)
    Wait();
  return waiter.given;
}

// The oldest kept attachment with a message. Those that will never have one again are let go.
QueueAttachment* QueueAttachments::KeptUse(QueueAttachment** finished) {
  for (QueueAttachment* kept = _kept; kept != nullptr && !_isEnding;) {
    QueueAttachment* const next = kept->next;
    if (MessageWaits(*kept))
      return UseBegin(kept);
    if (kept->users == 0) {
      KeptUnlink(kept);
      FinishedAdd(finished, kept);
    }
    kept = next;
  }
  return nullptr;
}

void QueueAttachments::KeptAppend(QueueAttachment* attachment) {
  QueueAttachment** link = &_kept;
  while (*link != nullptr)
    link = &(*link)->next;
  *link = attachment;
  attachment->isKept = true;
  ++_keptCount;
}

void QueueAttachments::KeptUnlink(QueueAttachment* attachment) {
  QueueAttachment** link = &_kept;
  while (*link != nullptr && *link != attachment)
    link = &(*link)->next;
  if (*link == nullptr)
    return;
  *link = attachment->next;
  attachment->next = nullptr;
  attachment->isKept = false;
  --_keptCount;
}

void QueueAttachments::KeptUnlinkSegment(int segmentId, QueueAttachment** finished) {
  for (QueueAttachment* kept = _kept; kept != nullptr;) {
    QueueAttachment* const next = kept->next;
    if (kept->shm != nullptr && kept->shm->id == segmentId) {
      KeptUnlink(kept);
      if (kept->users == 0)
        FinishedAdd(finished, kept);
    }
    kept = next;
  }
}

void QueueAttachments::UserNote() {
  if (_isShared)
    return;
  const pthread_t self = pthread_self();
  if (!_hasUser)
    _firstUser = self;
  else if (pthread_equal(_firstUser, self) == 0)
    _isShared = true;
  _hasUser = true;
}
