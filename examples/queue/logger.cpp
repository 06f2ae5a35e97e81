// Makes a message queue, prints the readings that sensors send to it, and says which are missing.

#include "Reading.h"
#include "StopSignal.h"
#include "ipc/ShmMsgQManager.h"
#include "time/VORNClock.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <map>

namespace {

struct Options {
  int queue = DEFAULT_QUEUE_ID;
  unsigned int size = 65536;
  long count = 0;
};

class Log {
public:
  void ReadingTake(const Reading& reading);
  void SummaryPrint() const;
  long CountGet() const { return _received; }

private:
  void GapLookFor(const Reading& reading);

  VORNClock _clock;
  std::map<std::int32_t, SequenceNumber> _next;  // by sensor: the number that is to come
  long _received = 0;
  long _missing = 0;
};

std::int64_t Plain(const SequenceNumber& number) {
  return static_cast<std::int64_t>(number.high) * 4294967296 + number.low;
}

double Seconds(const VORNNtpTime& time) { return time.sec + time.frac / 4294967296.0; }

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

void Log::ReadingTake(const Reading& reading) {
  KELNtpTime now;
  _clock.TimeGet(&now);
  GapLookFor(reading);
  ++_received;
  const VORNNtpTime age = VORNNtpTime::FromWords(now.sec, now.frac) - reading.time;
  std::printf("sensor %" PRId32 ": #%" PRId64 " %.3f degrees, %.3f ms old\n", reading.sensor,
              Plain(reading.number), reading.value / 1000.0, Seconds(age) * 1000);
}

void Log::SummaryPrint() const {
  std::printf("logger: %ld readings of %zu sensors, %ld missing\n", _received, _next.size(),
              _missing);
}

ShmMsgQ* QueueMake(const Options& options) {
  ShmMsgQ* queue = ShmMsgQManager::New(options.queue, options.size);
  if (queue != nullptr)
    return queue;
  ShmMsgQ* other = ShmMsgQManager::Open(options.queue);
  if (other != nullptr)
    std::fprintf(stderr,
                 "logger: there is a queue %d already. Another logger runs, or one was killed:\n"
                 "logger: look with `vorndiag queue %d`, remove it with `--remove` there.\n",
                 options.queue, options.queue);
  else
    std::fprintf(stderr, "logger: the host refuses a queue %d of %u bytes\n", options.queue,
                 options.size);
  ShmMsgQManager::Release(other, 0);
  return nullptr;
}

// Why Recv failed. It has nothing to say itself when it found damage, so `errno` was cleared.
int ReceiveFailureReport(int error) {
  if (error == EIDRM || error == EINVAL)
    std::fprintf(stderr, "logger: somebody removed the queue\n");
  else
    std::fprintf(stderr, "logger: another process has damaged the queue\n");
  return 1;
}

// Returns the exit code.
int MessagesReceive(ShmMsgQ* queue, const Options& options, Log* log) {
  while (!StopRequested() && (options.count == 0 || log->CountGet() < options.count)) {
    char bytes[READING_SIZE + 1];  // one more, to tell a reading from something longer
    errno = 0;
    const int length = queue->Recv(bytes, sizeof bytes);
    if (length < 0 && errno == EINTR)
      continue;
    if (length < 0)
      return ReceiveFailureReport(errno);
    Reading reading{};
    if (ReadingUnpack(bytes, length, &reading))
      log->ReadingTake(reading);
    else
      std::fprintf(stderr, "logger: ignored a message that is no reading\n");
  }
  return 0;
}

int QueueServe(const Options& options) {
  ShmMsgQ* queue = QueueMake(options);
  if (queue == nullptr)
    return 1;
  std::printf("logger: queue %d is there, %d bytes free; Ctrl-C ends\n", options.queue,
              queue->SpaceGet());
  Log log;
  const int exitCode = MessagesReceive(queue, options, &log);
  ShmMsgQManager::Release(queue, 1);  // from the host, too: whoever makes a queue removes it
  log.SummaryPrint();
  return exitCode;
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
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  StopSignalsCatch();
  if (ShmMsgQManager::Initialize() == 0) {
    std::fprintf(stderr, "logger: no memory\n");
    return 1;
  }
  const int exitCode = QueueServe(options);
  ShmMsgQManager::Destroy();
  return exitCode;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    return ProgramRun(argumentCount, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "logger: %s\n", error.what());
    return 1;
  }
}
