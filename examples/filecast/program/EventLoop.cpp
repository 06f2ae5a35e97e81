#include "program/EventLoop.h"

#include "program/Signals.h"
#include "wire/Failure.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

ActionEvent::ActionEvent(const VORNNtpTime& start, double period, int id, Action action)
    : VORNEvent(start, VORNNtpTime::FromSeconds(period), id, EVENT_ENABLED),
      _action(std::move(action)) {}

int ActionEvent::Fired(const VORNNtpTime& now) {
  if (VORNEvent::Fired(now) == 0)
    return 0;
  _action(now);
  return 1;
}

EventLoop::EventLoop() {
  if (_clock.IsValid() == 0 || _manager.IsValid() == 0)
    throw Failure(ExitCode::INTERNAL, "no memory for clock and timers");
}

VORNNtpTime EventLoop::NowGet() {
  KELNtpTime reading;
  _clock.TimeGet(&reading);
  return VORNNtpTime::FromKelTime(reading);
}

ActionEvent& EventLoop::EventAdd(double period, ActionEvent::Action action) {
  auto event = std::make_unique<ActionEvent>(NowGet(), period, _eventCount, std::move(action));
  if (_manager.EventAdd(event.get()) == 0)
    throw Failure(ExitCode::INTERNAL, "too many timers");
  ++_eventCount;
  return *event.release();  // the manager deletes it
}

void EventLoop::Run(VORNDGram& endpoint, const ActionEvent::Action& receive,
                    const std::function<bool()>& isDone) {
  while (!IsInterrupted()) {
    const VORNNtpTime now = NowGet();
    for (int id = 0; id < _eventCount; ++id)
      _manager.EventFind(id)->Fired(now);
    if (isDone())
      return;
    const VORNNtpTime sleep = _manager.SleepTimeMinGet(NowGet());
    KELNtpTime timeout = sleep.KelTimeGet();
    const int waiting = endpoint.HasDataWithSleep(&timeout);
    if (waiting > 0)
      receive(NowGet());
    else if (waiting < 0 && errno != EINTR)
      throw Failure(ExitCode::NETWORK_FAILED,
                    std::string("cannot wait for datagrams: ") + std::strerror(errno));
  }
}
