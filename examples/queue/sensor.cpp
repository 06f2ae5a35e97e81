// Takes a reading every period and sends it to the logger, whether that runs, is too slow, goes
// away or comes back.

#include "Reading.h"
#include "SendFailure.h"
#include "StopSignals.h"
#include "ipc/ShmMsgQManager.h"
#include "time/VORNClock.h"
#include "time/VORNEventManager.h"
#include "utils/VORNRandomGenerator.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

#include <unistd.h>

namespace {

struct Options {
  int queue = DEFAULT_QUEUE_ID;
  int sensor = 0;
  int period = 1000;
  long count = 0;
};

enum class Link { NEW, UP, FULL, NO_LOGGER, NOT_ALLOWED, DAMAGED };

/// The way to the logger. A queue that is removed and made again has the same id, so a failed send
/// always looks for it anew.
class LoggerLink {
public:
  LoggerLink(const Options& options, const std::stop_token& stop)
      : _options(options), _stop(stop) {}
  ~LoggerLink() { ShmMsgQManager::Release(_queue, 0); }
  LoggerLink(const LoggerLink&) = delete;
  LoggerLink& operator=(const LoggerLink&) = delete;

  void Send(const char* bytes, int length);
  void Look();
  long SentGet() const { return _sent; }
  long LostGet() const { return _lost; }

private:
  void StateSet(Link state);
  void LossPrint(const char* why) const;
  void LossExplain(const char* bytes, int length);

  const Options& _options;
  std::stop_token _stop;
  ShmMsgQ* _queue = nullptr;
  Link _state = Link::NEW;
  long _sent = 0;
  long _lost = 0;
  long _lostBefore = 0;  // when the present state began
};

void LoggerLink::LossPrint(const char* why) const {
  std::printf("sensor %d: queue %d %s\n", _options.sensor, _options.queue, why);
}

void LoggerLink::StateSet(Link state) {
  if (state == _state)
    return;
  const int id = _options.queue;
  if (state == Link::FULL)
    LossPrint("is full, readings are lost");
  else if (state == Link::NOT_ALLOWED)
    LossPrint("is another user's and not for this one, readings are lost");
  else if (state == Link::DAMAGED)
    LossPrint("is damaged, readings are lost until its logger is started again");
  else if (state == Link::NO_LOGGER)
    std::printf("sensor %d: no logger on queue %d, readings are lost until one comes\n",
                _options.sensor, id);
  else if (_lost > _lostBefore)
    std::printf("sensor %d: queue %d takes readings again, %ld were lost\n", _options.sensor, id,
                _lost - _lostBefore);
  else
    std::printf("sensor %d: sending to queue %d\n", _options.sensor, id);
  if (state == Link::UP)
    _lostBefore = _lost;
  _state = state;
}

// What has passed says nothing: the state stays as it was.
void LoggerLink::LossExplain(const char* bytes, int length) {
  const SendFailure failure = SendFailureGet(_options.queue, bytes, length);
  if (failure == SendFailure::FULL || failure == SendFailure::TOO_LONG)
    StateSet(Link::FULL);
  else if (failure == SendFailure::GONE)
    StateSet(Link::NO_LOGGER);
  else if (failure == SendFailure::NOT_ALLOWED)
    StateSet(Link::NOT_ALLOWED);
  else if (failure == SendFailure::DAMAGED)
    StateSet(Link::DAMAGED);
}

void LoggerLink::Look() {
  if (_queue != nullptr)
    return;
  _queue = ShmMsgQManager::Open(_options.queue);
  if (_queue == nullptr)
    LossExplain("", 0);
}

void LoggerLink::Send(const char* bytes, int length) {
  Look();
  if (_queue != nullptr && _queue->Send(bytes, length) != 0) {
    ++_sent;
    StateSet(Link::UP);
    return;
  }
  ++_lost;
  // A send that was interrupted by the stop says nothing about the queue.
  if (_queue != nullptr && !_stop.stop_requested())
    LossExplain(bytes, length);
  ShmMsgQManager::Release(_queue, 0);
  _queue = nullptr;
}

/// The timed event that takes the readings.
class ReadingEvent : public VORNEvent {
public:
  ReadingEvent(const VORNNtpTime& now, const Options& options, LoggerLink* logger)
      : VORNEvent(now, PeriodOf(options), 0, EVENT_ENABLED), _logger(logger) {
    _reading.sensor = options.sensor;
    _reading.value = 20000;
  }

  int Fired(const VORNNtpTime& now) override {
    if (VORNEvent::Fired(now) == 0)
      return 0;
    _reading.time = now;
    _reading.number.Add(1);
    _reading.value += VornRandomNumberGenerate(-50, 50);
    char bytes[READING_SIZE];
    if (ReadingPack(_reading, bytes))
      _logger->Send(bytes, sizeof bytes);
    return 1;
  }

private:
  static VORNNtpTime PeriodOf(const Options& options) {
    return VORNNtpTime(options.period / 1000,
                       static_cast<unsigned long>(options.period % 1000) * 1000000);
  }

  Reading _reading{};
  LoggerLink* _logger;
};

VORNNtpTime NowGet(VORNClock* clock) {
  KELNtpTime now;
  clock->TimeGet(&now);
  return VORNNtpTime::FromKelTime(now);
}

// Ends early when the sensor is to stop.
void Sleep(const VORNNtpTime& time, const std::stop_token& stop) {
  std::mutex mutex;
  std::unique_lock lock(mutex);
  std::condition_variable_any never;
  never.wait_for(lock, stop, std::chrono::duration<double>(time.SecondsGet()),
                 [] { return false; });
}

// The working thread. Returns the exit code.
int ReadingsSend(const std::stop_token& stop, const Options& options) {
  const StopAtEnd end;
  VORNClock clock;
  LoggerLink logger(options, stop);
  VORNEventManager events(1, 1, 0);  // one event, which is ours; sleeps of one second at most
  if (clock.IsValid() == 0 || events.IsValid() == 0) {
    std::fprintf(stderr, "sensor: no memory\n");
    return 1;
  }
  ReadingEvent reading(NowGet(&clock), options, &logger);
  events.EventAdd(&reading);
  logger.Look();
  while (!stop.stop_requested() && std::ferror(stdout) == 0 &&
         (options.count == 0 || logger.SentGet() + logger.LostGet() < options.count)) {
    Sleep(events.SleepTimeMinGet(NowGet(&clock)), stop);
    reading.Fired(NowGet(&clock));
  }
  std::printf("sensor %d: %ld readings sent, %ld lost\n", options.sensor, logger.SentGet(),
              logger.LostGet());
  return logger.LostGet() == 0 ? 0 : 3;
}

// Only a send that waits for the mutex goes on after a stop: it waits as long as the holder keeps
// it, and for ever when that one is dead. An interruption ends the wait, and never a send that is
// under way; the first one makes `Send` open the queue anew and wait once more, the second ends it.
void WorkEnd(const Options& options, std::jthread* worker, const std::future<int>& result) {
  constexpr std::chrono::milliseconds PATIENCE(200);
  constexpr int ATTEMPTS = 10;
  constexpr auto READY = std::future_status::ready;
  worker->request_stop();
  if (result.wait_for(PATIENCE) == READY)
    return;
  std::fprintf(
      stderr,
      "sensor %d: its last send to queue %d does not end: `vorndiag queue %d` shows whether "
      "a dead sender holds the mutex, and `--give-mutex` there gives it back\n",
      options.sensor, options.queue, options.queue);
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    WaitInterrupt(worker->native_handle());
    if (result.wait_for(PATIENCE) == READY)
      return;
  }
  std::fprintf(stderr, "sensor %d: standard output takes nothing; ended\n", options.sensor);
  std::_Exit(1);
}

int SensorRun(const Options& options) {
  std::packaged_task<int(const std::stop_token&)> work(
      [&options](const std::stop_token& stop) { return ReadingsSend(stop, options); });
  std::future<int> result = work.get_future();
  std::jthread worker(std::move(work));
  StopAwait();
  WorkEnd(options, &worker, result);
  return result.get();
}

int ProgramRun(int argumentCount, char** arguments) {
  Options options;
  options.sensor = getpid();
  CLI::App app("Sends a reading every period through a message queue. Several may run at once.");
  app.add_option("--queue", options.queue, "queue id, the same as the logger's")
      ->capture_default_str();
  app.add_option("--sensor", options.sensor, "number of this sensor (default: its process id)");
  app.add_option("--period", options.period, "milliseconds between readings")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  app.add_option("--count", options.count, "readings after which to end; 0: at Ctrl-C")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.footer("Exit codes: 0 all sent, 1 cannot run, 2 wrong option, 3 readings were lost.");
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  VornRandomNumberSeed(static_cast<unsigned int>(options.sensor));
  StopSignalsBlock();
  if (ShmMsgQManager::Initialize() == 0) {
    std::fprintf(stderr, "sensor: no memory\n");
    return 1;
  }
  const int exitCode = SensorRun(options);
  ShmMsgQManager::Destroy();
  return exitCode;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    return ProgramRun(argumentCount, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sensor: %s\n", error.what());
    return 1;
  }
}
