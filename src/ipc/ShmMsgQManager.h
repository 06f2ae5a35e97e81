#ifndef IPC_SHM_MSG_Q_MANAGER_H
#define IPC_SHM_MSG_Q_MANAGER_H

#include "ipc/VORNShmMsgQ.h"
#include "platform/VornExport.h"

class DequeVoid;
struct DequeVoidNode;
struct KELSemaphore;

/// The message queues that this process uses, counted by reference. Queues made or opened here are
/// this registry's; it deletes each when its last holder releases it. There may be several objects
/// of one queue id: `New` and `Open` do not look for an earlier one.
///
/// Threads: any, between `Initialize` and `Destroy`. One mutex guards registry and counts. It is
/// held while a queue sends, so a send that waits for another process's sender holds everybody up
/// here; it is never held while `New` and `Open` make their object, nor by a receiver in
/// `ShmMsgQ::Recv`. Locks in their order: this mutex, then a queue's named mutex.
///
/// Before `Initialize` and after `Destroy` every operation refuses: 0, null, or nothing done.
///
/// Append only: the order of the static members is part of what programs link against.
class VORN_API ShmMsgQManager {
public:
  ShmMsgQManager() = delete;  ///< there is one registry per process

  /// Makes the registry. Returns 1, also when it is there already, which it stays; or 0 without
  /// memory or mutex, with nothing made. Call it before other threads use the manager.
  static int Initialize();
  /// Deletes every queue object, which leaves the queues on the host, and the registry. No other
  /// thread uses the manager or its queues any more.
  static void Destroy();
  /// Deletes every queue object, and removes from the host the queues that this process made, as
  /// far as `ShmMsgQ::Destroy` goes. The registry is then empty and can be used again.
  static void ReleaseAll();

  /// Makes a queue with `size` bytes, and an object for it with one holder. Null when that fails,
  /// with nothing left on the host, except what belongs to an existing queue of that id.
  static ShmMsgQ* New(int id, unsigned int size);
  /// Opens an existing queue, and makes an object for it with one holder. Null when there is none
  /// that can be used. A missing semaphore or mutex is made, and stays when a later step fails.
  static ShmMsgQ* Open(int id);
  /// Sees to it that an object of the queue is registered: 1 when there is one, whose count stays,
  /// or the existing queue could be opened; else 0. It never makes a queue. If the opening
  /// fails after it has got the semaphore or the mutex, it removes them.
  static int Create(int id);
  /// Adds one holder to every object of the queue and returns the last of them, or null for none.
  static ShmMsgQ* Acquire(int id);

  /// Takes one holder off `queue`. With the last one the object is deleted; with a non-zero
  /// `destroy` the queue is removed from the host as well, unless another object of its id is
  /// registered here. Other processes that use it are not asked. Null is ignored.
  static void Release(ShmMsgQ* queue, int destroy);
  /// Takes one holder off every object of the queue, and deletes those that have no more. The queue
  /// stays on the host.
  static void Release(int id);

  /// Sends through the first object of the queue, as `ShmMsgQ::Send` does; 0 when there is none.
  static int Send(int id, const char* data, int length);
  /// Prints a line for every object, whatever the verbosity.
  static void Print();

protected:
  static DequeVoid* _list;      ///< each node's data is a `ShmMsgQ*`; null: no registry
  static KELSemaphore* _mutex;  ///< guards `_list` and the counts; null: no registry

private:
  class VORN_LOCAL Lock;

  // Their callers hold the mutex.
  VORN_LOCAL static DequeVoidNode* NodeFind(int id);
  VORN_LOCAL static void QueuesDelete(bool destroyCreated);
};

#endif
