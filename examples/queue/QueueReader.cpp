#include "QueueReader.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr std::size_t MESSAGES_IN_ADVANCE = 64;

}  // namespace

QueueReader::QueueReader(ShmMsgQ* queue)
    : _queue(queue), _event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _receiver([this] { MessagesReceive(); }) {}

QueueReader::~QueueReader() {
  {
    const std::lock_guard lock(_mutex);
    _isLeft = true;
  }
  _room.notify_one();
  if (!HasEnded())
    _queue->Destroy();
  _receiver.join();
  if (_waker.joinable())
    _waker.join();
  close(_event);
}

bool QueueReader::HasMessage() {
  const std::lock_guard lock(_mutex);
  eventfd_t count = 0;
  if (_messages.empty() && !_hasEnded)
    static_cast<void>(eventfd_read(_event, &count));
  return !_messages.empty();
}

std::string QueueReader::MessageTake() {
  const std::lock_guard lock(_mutex);
  std::string message = std::move(_messages.front());
  _messages.pop_front();
  _room.notify_one();
  return message;
}

// A receiver waits for messages, so a message ends its wait: an empty one, which counts only while
// the end is asked for, so that nobody else can end this program with one. In a full queue there is
// no room for it until the receiver, who then does not wait, has made some. It is sent by a thread
// of its own, since a send can wait for the queue's mutex.
void QueueReader::EndBegin() {
  {
    const std::lock_guard lock(_mutex);
    if (_isEnding)
      return;
    _isEnding = true;
  }
  _waker = std::thread([this] {
    while (_queue->Send("", 0) == 0 && !HasEnded())
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
}

bool QueueReader::HasEnded() {
  const std::lock_guard lock(_mutex);
  return _hasEnded;
}

int QueueReader::ErrorGet() {
  const std::lock_guard lock(_mutex);
  return _error;
}

void QueueReader::MessagesReceive() {
  char bytes[MESSAGE_SIZE];
  for (;;) {
    errno = 0;  // `Recv` leaves it alone when it finds damage
    const int length = _queue->Recv(bytes, sizeof bytes);
    if (length < 0 && errno == EINTR)
      continue;  // Ctrl-Z and fg do that
    if (length < 0)
      return EndSet(errno);
    if (!MessageAdd(std::string(bytes, static_cast<std::size_t>(length))))
      return EndSet(0);
  }
}

// Waits for room. Returns false for the message that ends the thread.
bool QueueReader::MessageAdd(const std::string& message) {
  std::unique_lock lock(_mutex);
  if (_isEnding && message.empty())
    return false;
  _room.wait(lock, [this] { return _isLeft || _messages.size() < MESSAGES_IN_ADVANCE; });
  if (_isLeft)
    return false;
  _messages.push_back(message);
  static_cast<void>(eventfd_write(_event, 1));
  return true;
}

void QueueReader::EndSet(int error) {
  const std::lock_guard lock(_mutex);
  _error = error;
  _hasEnded = true;
  static_cast<void>(eventfd_write(_event, 1));
}
