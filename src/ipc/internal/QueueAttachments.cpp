#include "ipc/internal/QueueAttachments.h"

#include "ipc/VORNSemaphores.h"
#include "ipc/internal/QueueLayout.h"

#include <new>

namespace {

// Whether the oldest message can be received. Damage counts as none: it could never be passed.
bool MessageWaits(const QueueAttachment& attachment) {
  const auto offsets = RingOffsetsLoad(attachment.header, attachment.capacity);
  if (!offsets)
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
    ShMDelete(attachment->shm, attachment->isRemoved ? 1 : 0);
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
  return PresentUse();
}

QueueAttachment* QueueAttachments::ReceiverAdd() {
  QueueAttachment* finished = nullptr;
  QueueAttachment* used = nullptr;
  {
    const Lock lock(*this);
    _receiver = pthread_self();
    _hasReceiver = true;
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

void QueueAttachments::UserRemove(QueueAttachment* attachment) {
  QueueAttachment* finished = nullptr;
  int semaphore = 0;
  {
    const Lock lock(*this);
    if (UseEnd(attachment))
      FinishedAdd(&finished, attachment);
    else if (attachment->isKept && !IsReceiver())
      semaphore = KeptSemaphoreGet();
  }
  FinishedDelete(finished);
  NamedSemaphoreGive(semaphore);
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
  }
  NamedSemaphoreGive(semaphore);
  return used;
}

QueueAttachment* QueueAttachments::RecordNew() const {
  const Lock lock(*this);
  return _isEnded ? nullptr : new (std::nothrow) QueueAttachment;
}

void QueueAttachments::PresentDrop() {
  QueueAttachment* finished = nullptr;
  {
    const Lock lock(*this);
    QueueAttachment* const dropped = _present;
    _present = nullptr;
    if (dropped == nullptr)
      return;
    // A thread that receives for itself has seen what it wants to see; another one has not.
    if (_hasReceiver && !IsReceiver() && (dropped->users > 0 || MessageWaits(*dropped)))
      KeptAppend(dropped);
    else if (dropped->users == 0)
      FinishedAdd(&finished, dropped);
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
    _present = made;
    if (_renewal == Renewal::ACQUIRING)
      _renewal = Renewal::SETTING_UP;
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
  {
    const Lock lock(*this);
    while (_renewal != Renewal::NONE || (allLeave && _users > 0))
      Wait();
    while (_kept != nullptr) {
      QueueAttachment* const kept = _kept;
      KeptUnlink(kept);
      if (kept->users == 0)
        FinishedAdd(&finished, kept);
    }
    if (_present != nullptr) {
      _present->isRemoved = true;
      if (_present->users == 0)
        FinishedAdd(&finished, _present);
      _present = nullptr;
    }
  }
  ListDelete(finished);
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

// The present queue's semaphore, which the receiver may sleep beside although messages are left in a
// kept attachment: nobody else tells it of them. 0, which a give refuses, where there are none.
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
}

void QueueAttachments::KeptUnlink(QueueAttachment* attachment) {
  QueueAttachment** link = &_kept;
  while (*link != attachment)
    link = &(*link)->next;
  *link = attachment->next;
  attachment->next = nullptr;
  attachment->isKept = false;
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

bool QueueAttachments::IsReceiver() const {
  return _hasReceiver && pthread_equal(_receiver, pthread_self()) != 0;
}
