// Makes a message queue, or takes over one that is left, prints the readings that sensors send to
// it, and says which are missing.

#include "LoggerSeat.h"
#include "QueueLook.h"
#include "Reading.h"
#include "Refusal.h"
#include "StopSignals.h"
#include "ipc/ShmMsgQManager.h"
#include "time/VORNClock.h"

#include <CLI/CLI.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <map>
#include <memory>

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
      queue.reset(ShmMsgQManager::New(options.queue, options.size));
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

// Why Recv failed. It has nothing to say itself when it found damage, so `errno` was cleared.
int ReceiveFailureReport(const Options& options, int error) {
  if (error == EIDRM || error == EINVAL)
    std::fprintf(stderr, "logger: somebody removed the queue\n");
  else if (error == EACCES)
    FindingPrint(options.queue, {Finding::NOT_ALLOWED});
  else
    std::fprintf(stderr, "logger: another process has damaged the queue, which is removed\n");
  return EXIT_TROUBLE;
}

void MessageAdd(char* bytes, int length, Log* log) {
  Reading reading{};
  if (ReadingUnpack(bytes, length, &reading))
    log->ReadingAdd(reading);
  else
    std::fprintf(stderr, "logger: ignored a message that is no reading\n");
}

// The receiving thread. Returns the exit code.
int MessagesReceive(ShmMsgQ* queue, const Options& options, const std::atomic<bool>& isEnding,
                    Log* log) {
  const StopAtEnd stop;
  while (options.count == 0 || log->CountGet() < options.count) {
    char bytes[READING_SIZE + 1];  // one more, to tell a reading from something longer
    errno = 0;
    const int length = queue->Recv(bytes, sizeof bytes);
    if (length < 0 && errno == EINTR)
      continue;  // Ctrl-Z and fg do that
    if (length <= 0 && isEnding)
      return EXIT_ENDED;  // by ReceiverEnd
    if (length < 0)
      return ReceiveFailureReport(options, errno);
    MessageAdd(bytes, length, log);
    if (std::ferror(stdout) != 0) {
      std::fprintf(stderr, "logger: nobody reads what it prints any more\n");
      return EXIT_TROUBLE;
    }
  }
  return EXIT_ENDED;
}

// Ends the receiving thread, wherever it is, and removes the queue.
//
// A receiver waits for messages, so a message ends its wait: an empty one, which is no reading and
// counts only while `isEnding`, so that nobody else can end the logger with one. What sensors sent
// before is received first. In a full queue there is no room for it until the receiver, who then
// does not wait, has made some.
//
// That message is sent by a thread of its own: beside a mutex that a dead sensor left, it would
// wait for ever. Removing the queue ends that wait, and the receiver's.
void ReceiverEnd(ShmMsgQ* queue, const Options& options, const std::future<int>& receiver) {
  constexpr std::chrono::milliseconds ROOM_PAUSE(1);
  constexpr std::chrono::seconds PATIENCE(2);
  constexpr auto READY = std::future_status::ready;
  const std::future<void> waker = std::async(std::launch::async, [&] {
    while (queue->Send("", 0) == 0 && receiver.wait_for(ROOM_PAUSE) != READY) {
    }
  });
  if (receiver.wait_for(PATIENCE) != READY)
    std::fprintf(stderr, "logger: queue %d does not come to an end; it is removed as it is\n",
                 options.queue);
  queue->Destroy();
  if (receiver.wait_for(PATIENCE) == READY)
    return;
  std::fprintf(stderr, "logger: standard output takes nothing; ended\n");
  std::_Exit(EXIT_TROUBLE);
}

int QueueServe(ShmMsgQ* queue, const Options& options) {
  Log log;
  std::atomic<bool> isEnding{false};
  std::future<int> receiver = std::async(
      std::launch::async, [&] { return MessagesReceive(queue, options, isEnding, &log); });
  StopAwait();
  isEnding = true;
  ReceiverEnd(queue, options, receiver);
  log.SummaryPrint();
  return receiver.get();
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
  return QueueServe(queue.get(), options);
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
