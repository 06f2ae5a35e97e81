// Makes a message queue, or takes over one that is left, prints the readings that sensors send to
// it, and says which are missing.

#include "LoggerSeat.h"
#include "QueueLook.h"
#include "QueueReader.h"
#include "Reading.h"
#include "Refusal.h"
#include "StopSignals.h"
#include "ipc/QueueKeys.h"
#include "ipc/ShmMsgQManager.h"
#include "time/VORNClock.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <string>

#include <poll.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

struct Options {
  int queue = DEFAULT_QUEUE_ID;
  unsigned int size = 65536;
  long count = 0;
  bool takeOver = false;
};

enum ExitCode : int {
  EXIT_ENDED = 0,
  EXIT_TROUBLE = 1,
  EXIT_USAGE = 2,
  EXIT_NOT_OURS = 3,
  EXIT_LEFT_BEHIND = 4,
};

/// A logger that ends removes the queue from the host, whether it made it or took it over.
struct QueueRemove {
  void operator()(ShmMsgQ* queue) const { ShmMsgQManager::Release(queue, 1); }
};
using QueueHolder = std::unique_ptr<ShmMsgQ, QueueRemove>;

class Log {
public:
  void ReadingAdd(const Reading& reading);
  void SummaryPrint() const;
  long CountGet() const { return _received; }

private:
  void GapLookFor(const Reading& reading);

  VORNClock _clock;
  std::map<std::int32_t, SequenceNumber> _next;  // by sensor: the number that is to come
  long _received = 0;
  long _missing = 0;
};

void Log::GapLookFor(const Reading& reading) {
  const auto [entry, isNew] = _next.try_emplace(reading.sensor, reading.number);
  if (isNew)
    std::printf("sensor %" PRId32 ": new\n", reading.sensor);
  else if (reading.number < entry->second)
    std::printf("sensor %" PRId32 ": has started again\n", reading.sensor);
  else if (entry->second < reading.number) {
    const int gap = reading.number.Distance(entry->second);
    std::printf("sensor %" PRId32 ": GAP, %d missing\n", reading.sensor, gap);
    _missing += gap;
  }
  entry->second = reading.number + 1;
}

void Log::ReadingAdd(const Reading& reading) {
  KELNtpTime now;
  _clock.TimeGet(&now);
  GapLookFor(reading);
  ++_received;
  const VORNNtpTime age = VORNNtpTime::FromKelTime(now) - reading.time;
  std::printf("sensor %" PRId32 ": #%" PRId64 " %.3f degrees, %.3f ms old\n", reading.sensor,
              reading.number.IntegerGet(), reading.value / 1000.0, age.SecondsGet() * 1000);
}

void Log::SummaryPrint() const {
  std::printf("logger: %ld readings of %zu sensors, %ld missing\n", _received, _next.size(),
              _missing);
}

// Says why there is no queue for this logger. Returns the exit code.
int RefusalReport(const Options& options, const QueueLook& look, bool wasTried) {
  if (wasTried) {
    LimitPrint(options.queue, options.size);
    return EXIT_TROUBLE;
  }
  FindingPrint(options.queue, look);
  return look.finding == Finding::LEFT_BEHIND ? EXIT_LEFT_BEHIND : EXIT_NOT_OURS;
}

void SetsRemove(int id) {
  for (const std::uint32_t key : {QueueKeyGet(id), QueueMutexKeyGet(id)}) {
    const int set = semget(static_cast<key_t>(key), 0, 0);
    if (set >= 0)
      semctl(set, 0, IPC_RMID);
  }
}

// Where there is no segment, sets are left of an earlier queue, or of one that was made in vain and
// that a sensor had opened by then. Its sends would go on, by these sets into the segment that is
// gone, and nobody would see them. Without the sets its next send fails, and finds the new queue.
ShmMsgQ* QueueMake(const Options& options) {
  SetsRemove(options.queue);
  ShmMsgQ* made = ShmMsgQManager::New(options.queue, options.size);
  if (made == nullptr)
    SetsRemove(options.queue);
  return made;
}

// Null, with the exit code, after it has said why. Only the logger that has the seat comes here. It
// tries three times: a sensor that opens a queue half made makes the sets that are missing, and
// whoever is a moment later than another with the same set is refused.
QueueHolder QueueGet(const Options& options, int* exitCode) {
  constexpr int ATTEMPTS = 3;
  for (int attempt = 1;; ++attempt) {
    const QueueLook look = QueueLookAt(options.queue);
    const bool isAbsent = look.finding == Finding::NONE;
    const bool isAdopted = look.finding == Finding::LEFT_BEHIND && options.takeOver;
    QueueHolder queue;
    if (isAbsent)
      queue.reset(QueueMake(options));
    else if (isAdopted)
      queue.reset(ShmMsgQManager::Open(options.queue));
    if (queue != nullptr)
      return queue;
    if (attempt == ATTEMPTS || !(isAbsent || isAdopted)) {
      *exitCode = RefusalReport(options, look, isAbsent || isAdopted);
      return queue;
    }
  }
}

// Why receiving failed: 0 stands for damage.
int ReceiveFailureReport(const Options& options, int error) {
  if (error == EIDRM || error == EINVAL)
    std::fprintf(stderr, "logger: somebody removed the queue\n");
  else if (error == EACCES)
    FindingPrint(options.queue, {Finding::NOT_ALLOWED});
  else
    std::fprintf(stderr, "logger: another process has damaged the queue, which is removed\n");
  return EXIT_TROUBLE;
}

void MessageAdd(std::string message, Log* log) {
  Reading reading{};
  if (ReadingUnpack(message.data(), static_cast<int>(message.size()), &reading))
    log->ReadingAdd(reading);
  else
    std::fprintf(stderr, "logger: ignored a message that is no reading\n");
}

/// The event loop: it waits for messages and for a signal. A message is only taken when the output
/// takes its line, so that the loop waits nowhere else.
class LoggerLoop {
public:
  LoggerLoop(ShmMsgQ* queue, const Options& options)
      : _queue(queue), _options(options), _reader(queue), _stop(StopDescriptorNew()) {}
  ~LoggerLoop() { close(_stop); }
  LoggerLoop(const LoggerLoop&) = delete;
  LoggerLoop& operator=(const LoggerLoop&) = delete;

  /// Runs until the count is reached, receiving has ended, or the output has. Returns the exit
  /// code.
  int Run();

private:
  void EndBegin();
  bool PatienceIsOver();
  int PatienceGet() const;
  int EndedGet();

  ShmMsgQ* _queue;
  const Options& _options;
  QueueReader _reader;
  Log _log;
  int _stop;
  std::chrono::steady_clock::time_point _deadline = std::chrono::steady_clock::time_point::max();
  bool _isRemoved = false;
};

constexpr std::chrono::seconds PATIENCE(2);

void LoggerLoop::EndBegin() {
  _reader.EndBegin();
  _deadline = std::chrono::steady_clock::now() + PATIENCE;
}

// Milliseconds for `poll`.
int LoggerLoop::PatienceGet() const {
  if (_deadline == std::chrono::steady_clock::time_point::max())
    return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(_deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
}

// Removing the queue ends the receiver, whatever it waits for. What it has got can still be
// printed, if the output takes it.
bool LoggerLoop::PatienceIsOver() {
  if (!_isRemoved && !_reader.HasEnded())
    std::fprintf(stderr, "logger: queue %d does not come to an end; it is removed as it is\n",
                 _options.queue);
  else
    std::fprintf(stderr, "logger: standard output takes nothing; ended\n");
  const bool isOver = _isRemoved || _reader.HasEnded();
  _queue->Destroy();
  _isRemoved = true;
  _deadline = std::chrono::steady_clock::now() + PATIENCE;
  return isOver;
}

int LoggerLoop::EndedGet() {
  if (_deadline == std::chrono::steady_clock::time_point::max())
    return ReceiveFailureReport(_options, _reader.ErrorGet());
  _log.SummaryPrint();
  return EXIT_ENDED;
}

int LoggerLoop::Run() {
  while (_options.count == 0 || _log.CountGet() < _options.count) {
    const bool hasMessage = _reader.HasMessage();
    if (!hasMessage && _reader.HasEnded())
      return EndedGet();
    pollfd events[] = {{_stop, POLLIN, 0}, {_reader.DescriptorGet(), POLLIN, 0}};
    if (PatienceGet() >= 0)
      events[0].fd = -1;  // it is ending already
    if (hasMessage)
      events[1] = {STDOUT_FILENO, POLLOUT, 0};
    const int ready = poll(events, 2, PatienceGet());
    if (ready == 0 && PatienceIsOver())
      return EXIT_TROUBLE;
    if (events[0].revents != 0)
      EndBegin();
    else if (hasMessage && events[1].revents != 0)
      MessageAdd(_reader.MessageTake(), &_log);
    if (std::ferror(stdout) != 0) {
      std::fprintf(stderr, "logger: nobody reads what it prints any more\n");
      return EXIT_TROUBLE;
    }
  }
  _log.SummaryPrint();
  return EXIT_ENDED;
}

int LoggerRun(const Options& options) {
  const LoggerSeat seat(options.queue);
  if (seat.ErrorGet() != 0) {
    SeatPrint(options.queue, seat.ErrorGet());
    return EXIT_NOT_OURS;
  }
  int exitCode = EXIT_ENDED;
  const QueueHolder queue = QueueGet(options, &exitCode);
  if (queue == nullptr)
    return exitCode;
  std::printf("logger: queue %d is there, %d bytes free; Ctrl-C ends\n", options.queue,
              queue->SpaceGet());
  if (MutexIsStuck(options.queue))
    std::fprintf(stderr,
                 "logger: its mutex is taken and sensors wait for it: look with `vorndiag queue "
                 "%d`; where its holder is gone, `vorndiag queue %d --give-mutex`\n",
                 options.queue, options.queue);
  return LoggerLoop(queue.get(), options).Run();
}

int ProgramRun(int argumentCount, char** arguments) {
  Options options;
  CLI::App app("Prints the readings that sensors send through a message queue.");
  app.add_option("--queue", options.queue, "queue id, the same as the sensors'")
      ->capture_default_str();
  app.add_option("--size", options.size, "bytes of the queue; a reading takes 28")
      ->check(CLI::Range(28U, 0x7FFFFFFEU))
      ->capture_default_str();
  app.add_option("--count", options.count, "readings after which to end; 0: at Ctrl-C")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_flag("--take-over", options.takeOver,
               "go on with a queue whose maker is gone, and with what waits in it; without one, "
               "make it");
  app.footer("Exit codes: 0 ended as asked, 1 cannot run or go on, 2 wrong option, 3 the queue is "
             "another's, 4 the queue is left from a process that is gone: see --take-over.");
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_ENDED : EXIT_USAGE;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  StopSignalsBlock();
  if (ShmMsgQManager::Initialize() == 0) {
    std::fprintf(stderr, "logger: no memory\n");
    return EXIT_TROUBLE;
  }
  const int exitCode = LoggerRun(options);
  ShmMsgQManager::Destroy();
  return exitCode;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    return ProgramRun(argumentCount, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "logger: %s\n", error.what());
    return EXIT_TROUBLE;
  }
}
