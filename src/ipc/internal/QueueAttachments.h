#ifndef IPC_INTERNAL_QUEUE_ATTACHMENTS_H
#define IPC_INTERNAL_QUEUE_ATTACHMENTS_H

#include "ipc/VORNShmMsgQ.h"

#include <pthread.h>

/// What a queue object is, or was, attached to. Nothing of it changes after other threads can see
/// it, but for what the lock of `QueueAttachments` guards.
struct QueueAttachment {
  ShMHandle* shm = nullptr;         ///< owned; null: the queue could not be attached
  ShmMsgQHeader* header = nullptr;  ///< in the segment
  int capacity = 0;
  int semaphoreId = 0;
  int mutexId = 0;
  bool isLost = false;  ///< no segment, where there was one: each send tries to open the queue anew

  // Guarded by the lock.
  int users = 0;                    ///< sends and receives that work with it
  bool isKept = false;              ///< no longer the present one, but not received to its end
  QueueAttachment* next = nullptr;  ///< the next newer one that is kept
};

/// The attachments of one queue object, which any number of its process's threads use at once.
///
/// One attachment is the present one. A send or a receive adds itself to its users and works with
/// it without a lock, so that nothing is unmapped under it. The lock is held for some instructions
/// and never while it waits for another process. Whoever finds the present one stale renews it,
/// once for all who fail on it: the others wait for the new one that is just being made, and each
/// of them gets that very one, so that nobody waits for two. A stale attachment goes with its last
/// user. Only where several threads use the object and one of them receives, and messages are left
/// in it or may still come, it is kept until they are received: their senders have been told that
/// they were sent. `KEPT_LIMIT` of them are kept; the oldest goes for the next one.
///
/// Threads inside must not be cancelled, and a child that was forked while other threads were
/// inside must not use the object: it would wait for threads that it does not have.
///
/// `Destroy` ends all of this: nobody is added any more, nobody renews, and those who are in leave.
///
/// Who may do what:
///
/// | state | users are added | renewal begins |
/// |---|---|---|
/// | steady | yes | yes |
/// | renewing: acquiring, then setting up | they wait for the result | no |
/// | ending, ended | no | no |
class QueueAttachments {
public:
  QueueAttachments() = default;
  /// Detaches whatever is left. No thread uses the object any more.
  ~QueueAttachments();
  QueueAttachments(const QueueAttachments&) = delete;
  QueueAttachments& operator=(const QueueAttachments&) = delete;

  /// Whether the present attachment has a segment.
  bool IsAttached() const;
  /// Whether `EndBegin` was called.
  bool IsEnding() const;
  /// Free bytes of its ring; 0 without one, or with a damaged header.
  int SpaceGet() const;

  /// The present attachment for a sender; null when there is none, or after the end. Each result
  /// goes back to `UserRemove`.
  QueueAttachment* SenderAdd();
  /// The same for the receiver: the oldest attachment that still has messages, else the present
  /// one.
  QueueAttachment* ReceiverAdd();
  void UserRemove(QueueAttachment* attachment);

  /// Begins to renew `stale`, which the caller uses, and takes the caller off its users. False,
  /// with nothing done, when it is not the present one any more, somebody is at it, or after the
  /// end.
  bool RenewalBegin(QueueAttachment* stale);
  /// Ends what `RenewalBegin` began, and hands the present attachment to all who wait. Returns it,
  /// with the caller as a user.
  QueueAttachment* RenewalEnd();

  /// Takes the present attachment away.
  void PresentDrop();
  /// Makes `made` the present attachment, for users as soon as the renewal has ended; during one,
  /// the caller becomes its first user. Returns whether the queue is still to be used; if not,
  /// `EndBegin` has been waiting for this. After the end, `made` is deleted.
  bool PresentSet(QueueAttachment* made);

  /// From now on nobody attaches. Returns when nobody is acquiring sets or a segment any more;
  /// false when another thread ends the queue, and then when that one is through.
  bool EndBegin();
  /// Waits, if `allLeave`, until the last user has left. Then takes the present attachment away and
  /// removes its segment from the host. Users that are left keep it attached until they leave.
  void End(bool allLeave);

private:
  class Lock;
  static constexpr int KEPT_LIMIT = 64;
  enum class Renewal { NONE, ACQUIRING, SETTING_UP };

  /// A thread that waits for the renewal under way.
  struct Waiter {
    QueueAttachment* given = nullptr;
    bool isDone = false;
    Waiter* next = nullptr;
  };

  // Their callers hold the lock. What they put on a list is for `FinishedDelete` after the lock.
  QueueAttachment* UseBegin(QueueAttachment* attachment);
  bool UseEnd(QueueAttachment* attachment);
  QueueAttachment* PresentUse();
  QueueAttachment* KeptUse(QueueAttachment** finished);
  void KeptAppend(QueueAttachment* attachment);
  void KeptUnlink(QueueAttachment* attachment);
  void KeptUnlinkSegment(int segmentId, QueueAttachment** finished);
  void UserNote();
  int KeptSemaphoreGet() const;
  void UsersLeave(int count);
  void FinishedAdd(QueueAttachment** finished, QueueAttachment* attachment);
  void Wait() { pthread_cond_wait(&_changed, &_lock); }

  void FinishedDelete(QueueAttachment* finished);

  mutable pthread_mutex_t _lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t _changed =
      PTHREAD_COND_INITIALIZER;  ///< renewal, end, and the last user's leaving
  QueueAttachment* _present = nullptr;
  QueueAttachment* _kept = nullptr;  ///< oldest first
  int _users = 0;  ///< of all attachments, and one for each that is being detached
  Renewal _renewal = Renewal::NONE;
  Waiter* _waiters = nullptr;
  bool _isEnding = false;
  bool _isEnded = false;
  QueueAttachment* _renewed = nullptr;  ///< what the renewal under way has made
  int _keptCount = 0;
  bool _hasUser = false;
  bool _isShared = false;    ///< more than one thread has used the object
  bool _isReceived = false;  ///< one of them has received
  pthread_t _firstUser{};
};

#endif
