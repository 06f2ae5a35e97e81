#ifndef EXAMPLES_QUEUE_QUEUE_READER_H
#define EXAMPLES_QUEUE_QUEUE_READER_H

#include "ipc/VORNShmMsgQ.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

/// Receives from a queue for a program with an event loop. No `poll` waits for a queue, so a thread
/// waits in `Recv`, and a descriptor tells the loop that a message has come. Copy this to a program
/// that waits for other things as well.
///
/// The thread takes no more than some messages in advance: a loop that is slow finds its queue
/// full, and senders are told so. All operations are for the loop's thread.
class QueueReader {
public:
  /// Begins to receive. The queue is the caller's and outlives the object.
  explicit QueueReader(ShmMsgQ* queue);
  /// Removes the queue if receiving has not ended: nothing else surely ends it.
  ~QueueReader();
  QueueReader(const QueueReader&) = delete;
  QueueReader& operator=(const QueueReader&) = delete;

  /// Readable as long as a message is there, and when receiving has ended. For `poll` only.
  int DescriptorGet() const { return _event; }
  /// Whether `MessageTake` has one. `false` makes the descriptor unreadable until one comes.
  bool HasMessage();
  /// The oldest message, cut to `MESSAGE_SIZE` bytes. Only after `HasMessage`.
  std::string MessageTake();

  /// Asks for the end. Messages sent before come first; then `HasEnded`. It does not come beside a
  /// mutex that a dead sender left: after some patience call the queue's `Destroy`, which ends it.
  void EndBegin();
  /// Whether no message will come any more. Those that are there can still be taken.
  bool HasEnded();
  /// Why it has ended: 0 as asked, or what `errno` was; 0 as well for a queue that is damaged.
  int ErrorGet();

  static constexpr int MESSAGE_SIZE = 256;

private:
  void MessagesReceive();
  bool MessageAdd(const std::string& message);
  void EndSet(int error);

  ShmMsgQ* _queue;
  int _event;
  std::mutex _mutex;  // guards what follows
  std::condition_variable _room;
  std::deque<std::string> _messages;
  bool _isEnding = false;
  bool _isLeft = false;  // nobody takes messages any more
  bool _hasEnded = false;
  int _error = 0;
  std::thread _receiver, _waker;  // started last, when all of the above is there
};

#endif
