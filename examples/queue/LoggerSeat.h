#ifndef EXAMPLES_QUEUE_LOGGER_SEAT_H
#define EXAMPLES_QUEUE_LOGGER_SEAT_H

/// The right to receive from one queue, which one living logger has. The queue itself cannot tell:
/// the kernel keeps the process that made it, and not one that took it over.
///
/// The right is a name: that of a local socket in the abstract name space, made of the IPC
/// namespace and the queue id. The kernel gives a name to one process and takes it back when that
/// process ends, however it ends; no file is left and no process number can mislead. Such names
/// belong to a network namespace: loggers of two containers that share the IPC namespace and not
/// the network do not see each other here. There only `QueueLook` stands between them.
class LoggerSeat {
public:
  /// Tries to get the right. Ask `ErrorGet`.
  explicit LoggerSeat(int queue);
  ~LoggerSeat();
  LoggerSeat(const LoggerSeat&) = delete;
  LoggerSeat& operator=(const LoggerSeat&) = delete;

  /// 0: this process has the right as long as the object lives. `EADDRINUSE`: another one has it.
  /// Another system error: it is not known.
  int ErrorGet() const { return _error; }

private:
  int _socket;
  int _error = 0;
};

#endif
