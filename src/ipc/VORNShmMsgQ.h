#ifndef IPC_VORN_SHM_MSG_Q_H
#define IPC_VORN_SHM_MSG_Q_H

#include "ipc/VORNShmem.h"
#include "platform/VornExport.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <shared_mutex>

/// A queue of messages of any length from many senders to one receiver, in any processes of one
/// host that agree on an integer, the queue id. It lives in a shared segment as a ring of
/// length-prefixed messages; a named mutex lets one sender at a time write, a named semaphore wakes
/// the receiver. docs/queue-layout.md describes all of it byte by byte.
///
/// Threads: any number of senders in any processes, one receiver per queue. One object serves any
/// number of sending threads and one receiving thread of its process. `Destroy` ends what they wait
/// for with a failure; no thread begins a send meanwhile, and none uses the object when it is
/// deleted.
class VORN_API ShmMsgQ {
public:
  ShmMsgQ(int refCount, int id);

  /// Free bytes in the ring: a message of L bytes fits when it is at least L + 4. The offsets are
  /// read one after the other without a lock, so while others send and receive it is a guess. 0 for
  /// an invalid queue or a damaged header.
  virtual int SpaceGet() const = 0;

  /// Appends one message of `length` bytes (0 or more). Returns 1; or 0 when there is no room (it
  /// does not wait), `data` is null, `length` negative, the queue invalid or its header damaged.
  ///
  /// When the mutex cannot be taken (a signal, a deleted set) or the semaphore not be given, a line
  /// is printed at level > 1, the queue is opened anew by its id and the message is sent once more;
  /// after a failed give it is then in the queue twice. When the opening fails, which it always
  /// does for the creator of a queue that still exists, the object becomes invalid for good.
  virtual int Send(const char* data, int length) = 0;

  /// Takes the oldest message, waiting for one, and copies at most `length` bytes of it; the rest
  /// is lost. Returns the bytes copied; or -1, with nothing taken, when the wait failed (a signal,
  /// a deleted set), for a null buffer, a negative length, an invalid queue, and a header or
  /// message that another process has damaged. Damage stays: every later call returns -1 without
  /// waiting.
  virtual int Recv(char* buffer, int length) = 0;

  /// 1 while the object is attached to its queue, else 0. Ask after construction.
  virtual int IsValid() = 0;

  /// Removes mutex, semaphore and segment from the host and leaves this object invalid. Those who
  /// wait for the queue fail. An object that a failed send made invalid no longer knows the
  /// segment: it removes mutex and semaphore, and the segment stays until another object destroys
  /// it.
  virtual void Destroy() = 0;

  /// Prints queue id and reference count, whatever the verbosity.
  virtual void Print();

  virtual ~ShmMsgQ();
  ShmMsgQ(const ShmMsgQ&) = delete;
  ShmMsgQ& operator=(const ShmMsgQ&) = delete;

protected:
  friend class ShmMsgQManager;

  int _id;
  int _refCount;   ///< holders in this process, kept by the manager
  int _capacity;   ///< bytes of the ring as this process found it; read in valid objects only
  int _isCreator;  ///< 1: this object made the shared objects; 0: it opened them
};

/// What a queue's segment begins with, behind its length word. Host byte order; each word is read
/// and written whole. Both are positions in the ring, 0 to capacity - 1; equal ones mean an empty
/// queue, so one byte of the ring always stays free.
struct ShmMsgQHeader {
  std::int32_t writeOffset;  ///< where the next message begins; stored by the holder of the mutex
  std::int32_t readOffset;   ///< where the oldest message begins; stored by the receiver alone
};
static_assert(offsetof(ShmMsgQHeader, writeOffset) == 0 &&
              offsetof(ShmMsgQHeader, readOffset) == 4 && sizeof(ShmMsgQHeader) == 8);

/// The queue over System V objects. Construction never fails outright: ask `IsValid`.
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

  int SpaceGet() const override;
  int Send(const char* data, int length) override;
  int Recv(char* buffer, int length) override;
  int IsValid() override;
  void Destroy() override;

protected:
  /// What came of one attempt to send.
  enum SendResult : int {
    SEND_DONE = 0,
    SEND_NULL_DATA = 1,   ///< nothing done
    SEND_NO_SPACE = 2,    ///< nothing written: no room, a negative length, or a damaged header
    SEND_LOCK_FAILED = 3  ///< mutex not taken, or semaphore not given after writing
  };

  // Return 1, or 0 with what they acquired given back, except for semaphore and mutex.
  int Initialize();
  int InitializeSharedMemory();
  int InitializeSemaphoreAndMutex();
  // Empties the ring under the mutex.
  int WriteSetup();
  void Uninitialize();
  int SendInternal(const char* data, int length);

  ShMHandle* _shm = nullptr;         ///< owned; null: not attached
  ShmMsgQHeader* _header = nullptr;  ///< in the segment; the ring follows it
  int _mutexId = 0;
  int _semaphoreId = 0;
  unsigned int _segmentLength = 0;  ///< usable length that a creator asks for; 0: opener

private:
  VORN_LOCAL int CapacityGet() const;
  VORN_LOCAL int MessageWrite(const char* data, int length);
  VORN_LOCAL void Reinitialize(unsigned int attachment);

  /// Held shared by whoever works with the fields above or in the segment, a receiver's wait
  /// excepted; alone by whoever attaches or detaches, so that nothing is unmapped under a receiver.
  mutable std::shared_mutex _attachmentLock;
  /// Changes with each re-initialisation, and with `Destroy`, after which there is none.
  std::atomic<unsigned int> _attachment{0};
};

#endif
