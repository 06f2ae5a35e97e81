#ifndef FILECAST_PROGRAM_EVENT_LOOP_H
#define FILECAST_PROGRAM_EVENT_LOOP_H

#include "net/VORNDGram.h"
#include "time/VORNClock.h"
#include "time/VORNEventManager.h"

#include <functional>

/// A timed event that does something when it fires.
class ActionEvent : public VORNEvent {
public:
  using Action = std::function<void(const VORNNtpTime& now)>;

  ActionEvent(const VORNNtpTime& start, double period, int id, Action action);
  /// Acts when the event was due. Returns what `VORNEvent::Fired` does.
  int Fired(const VORNNtpTime& now) override;
  void Disable() { _mode = EVENT_DISABLED; }
  /// An enabled event is due at once. Its period goes on from there.
  void Hurry(const VORNNtpTime& now) { _deadline = now; }

private:
  Action _action;
};

/// The program's main loop: fire what is due, sleep until the next deadline or datagram, receive.
class EventLoop {
public:
  EventLoop();

  VORNNtpTime NowGet();
  /// Adds an event of `period` seconds, which the loop owns. Enabled from the start.
  ActionEvent& EventAdd(double period, ActionEvent::Action action);

  /// Runs until `isDone` or a signal. Calls `receive` when a datagram waits at `endpoint`.
  void Run(VORNDGram& endpoint, const ActionEvent::Action& receive,
           const std::function<bool()>& isDone);

private:
  static constexpr int EVENT_CAPACITY = 8;

  VORNClock _clock;
  VORNEventManager _manager{EVENT_CAPACITY, 1, 1};
  int _eventCount = 0;
};

#endif
