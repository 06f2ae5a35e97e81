#ifndef IPC_VORN_SHM_MSG_Q_H
#define IPC_VORN_SHM_MSG_Q_H

#include "ipc/VORNShmem.h"
#include "platform/VornExport.h"

#include <cstddef>
#include <cstdint>

class QueueAttachments;
struct QueueAttachment;

/// A queue of messages of any length from many senders to one receiver, in any processes of one
/// host that agree on an integer, the queue id. It lives in a shared segment as a ring of
/// length-prefixed messages; a named mutex lets one sender at a time write, a named semaphore wakes
/// the receiver. docs/queue-layout.md describes all of it byte by byte.
///
/// Threads: any number of senders in any processes, one receiver per queue. One object serves any
/// number of sending threads and one receiving thread of its process, and `Destroy` may come from
/// any thread at any moment. `IsValid` and `SpaceGet` never wait. No thread uses the object when it
/// is deleted, no thread is cancelled in one of its operations, and a child that was forked while
/// other threads were in one uses an object of its own.
///
/// Append only: the order of virtual operations and of fields is part of what programs link
/// against.
class VORN_API ShmMsgQ {
public:
  /// A queue object without a queue, for the classes below.
  ShmMsgQ(int refCount, int id);

  /// Free bytes in the ring: a message of L bytes fits when it is at least L + 4. The offsets are
  /// read one after the other without a lock, so while others send and receive it is a guess. 0 for
  /// an invalid queue or a damaged header.
  virtual int SpaceGet() const = 0;

  /// Appends one message of `length` bytes (0 or more). Returns 1; or 0 when there is no room (it
  /// does not wait), `data` is null, `length` negative, the queue invalid or its header damaged.
  ///
  /// When the mutex cannot be taken (a signal, a removed set) or the semaphore cannot be given, a
  /// line is printed at level > 1, the queue is opened anew by its id and the message is sent once
  /// more, with a line of its own if that fails. After a failed give it is then in the queue twice.
  /// Threads of this process that send at that moment wait for the new opening and use it; those
  /// that are sending already are not disturbed. When the opening fails, the result is 0 and the
  /// object is invalid. An object that has opened its queue tries again at each later send, and is
  /// valid again when the queue has been made again. The creator of a queue that still exists
  /// cannot make it anew: its object stays invalid.
  virtual int Send(const char* data, int length) = 0;

  /// Removes the oldest message from the queue, waiting for one, and copies at most `length` bytes
  /// of it; the rest is lost. Returns the bytes copied; or -1, with nothing removed, when the wait
  /// failed (a signal, a removed set), for a null buffer with a length above 0, a negative length,
  /// an invalid queue, and a header or message that another process has damaged. Damage stays:
  /// every later call returns -1 without waiting.
  ///
  /// `errno` tells why a wait failed (EINTR, EIDRM, EINVAL, EACCES); it is left as it was
  /// otherwise.
  ///
  /// When an object that several threads use has opened the queue anew after its owner had removed
  /// it, the receiving thread first gets the messages that are left of the removed queue. That
  /// holds if it has received before, and for the last 64 removed queues.
  virtual int Recv(char* buffer, int length) = 0;

  /// 1 while the object is attached to its queue, else 0. Ask after construction. It is 0 for a
  /// moment while another thread's send opens the queue anew.
  virtual int IsValid() = 0;

  /// Removes mutex, semaphore and segment from the host and leaves this object invalid for good,
  /// whatever its other threads are doing: their waits fail, and it returns after the last of them
  /// has left the queue. Messages that wait in the queue are lost. Other processes find the queue
  /// gone when they next send or wait. Without permission to remove the sets, nothing wakes the
  /// threads that wait: they are left alone, the segment is removed if that is permitted, and the
  /// last of them detaches.
  virtual void Destroy() = 0;

  /// Prints queue id and reference count, whatever the verbosity.
  virtual void Print();

  /// No thread uses the object any more. The queue stays on the host.
  virtual ~ShmMsgQ();
  ShmMsgQ(const ShmMsgQ&) = delete;
  ShmMsgQ& operator=(const ShmMsgQ&) = delete;

protected:
  friend class ShmMsgQManager;

  int _id;         ///< queue id
  int _refCount;   ///< holders in this process, kept by the manager
  int _capacity;   ///< bytes of the ring as this process found it; read in valid objects only
  int _isCreator;  ///< 1: this object made the shared objects; 0: it opened them
};

/// What a queue's segment begins with, after its length word. Host byte order; each word is read
/// and written whole. Both are positions in the ring, 0 to capacity - 1; equal ones mean an empty
/// queue, so one byte of the ring always stays free.
struct ShmMsgQHeader {
  std::int32_t writeOffset;  ///< where the next message begins; stored by the holder of the mutex
  std::int32_t readOffset;   ///< where the oldest message begins; stored by the receiver alone
};
static_assert(offsetof(ShmMsgQHeader, writeOffset) == 0 &&
              offsetof(ShmMsgQHeader, readOffset) == 4 && sizeof(ShmMsgQHeader) == 8);

/// The queue over System V objects. Construction never fails outright: ask `IsValid`.
/// Append only, as its base.
class VORN_API ShmMsgQImpl : public ShmMsgQ {
public:
  /// Makes a queue with `size` bytes for messages and their 4-byte lengths, 0 to 2147483646. It is
  /// invalid when one of that id exists (which stays as it is), when the host refuses, and for a
  /// larger size; a segment that was made is removed again, a semaphore or mutex stays until
  /// `Destroy`. Waits for the named mutex if one is left over from an earlier queue.
  ShmMsgQImpl(int refCount, int id, unsigned int size);
  /// Opens a queue, makes its semaphore or mutex if one is missing, and learns its size. Invalid
  /// when there is no segment of that id or it cannot hold a queue.
  ShmMsgQImpl(int refCount, int id);
  /// Detaches; the queue stays on the host.
  ~ShmMsgQImpl() override;

  // As `ShmMsgQ` says.
  int SpaceGet() const override;
  int Send(const char* data, int length) override;
  int Recv(char* buffer, int length) override;
  int IsValid() override;
  void Destroy() override;

protected:
  /// What came of one attempt to send.
  enum SendResult : int {
    SEND_DONE = 0,        ///< written, and the receiver told
    SEND_NULL_DATA = 1,   ///< nothing done
    SEND_NO_SPACE = 2,    ///< nothing written: no room, a negative length, or a damaged header
    SEND_LOCK_FAILED = 3  ///< mutex not taken, or semaphore not given after writing
  };

  /// Makes or opens the queue by its id. Returns 1; or 0 with what was acquired given back, except
  /// for semaphore and mutex; or 0 with nothing done after `Destroy`. A creator's ring is emptied.
  int Initialize();
  /// Makes or attaches the segment. Returns 1 or 0.
  int InitializeSharedMemory();
  /// Opens semaphore and mutex, or makes them. Returns 1 or 0.
  int InitializeSemaphoreAndMutex();
  /// Empties the ring under the mutex. Returns 1, or 0 when the mutex cannot be taken or given.
  int WriteSetup();
  /// Detaches; the queue stays on the host.
  void Uninitialize();
  /// One attempt to send. Returns a `SendResult`.
  int SendInternal(const char* data, int length);

  // What the object was attached to last. Written by the one thread that attaches or destroys;
  // operations work with the copy that `_attachments` keeps for them.
  ShMHandle* _shm = nullptr;         ///< owned by `_attachments`; null: not attached
  ShmMsgQHeader* _header = nullptr;  ///< in the segment; the ring follows it
  int _mutexId = 0;                  ///< handle of the named mutex; 0: none
  int _semaphoreId = 0;              ///< handle of the named semaphore; 0: none
  unsigned int _segmentLength = 0;   ///< usable length that a creator asks for; 0: opener

private:
  VORN_LOCAL int CapacityGet() const;
  VORN_LOCAL int Attach();
  VORN_LOCAL int AttachInto(QueueAttachment* made);
  VORN_LOCAL static int MessageSend(const QueueAttachment* queue, const char* data, int length);
  VORN_LOCAL QueueAttachment* Renew(QueueAttachment* stale);
  VORN_LOCAL void LostSegmentRemove() const;

  int _segmentId = -1;  ///< the kernel's id of the segment that was attached last; negative: none
  QueueAttachments* _attachments;  ///< owned; null: there was no memory, the object is invalid
};

#endif
