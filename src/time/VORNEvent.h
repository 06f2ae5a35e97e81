#ifndef TIME_VORN_EVENT_H
#define TIME_VORN_EVENT_H

#include "platform/VornExport.h"
#include "time/VORNNtpTime.h"

#include <cstdint>

/// A periodic timer. While it is enabled, it fires at the first check at or after its deadline, and
/// is due again one period after that check. So late checks build up no backlog. It reads no clock:
/// the caller says what time it is. Derive from it to do something when it fires. One thread at a
/// time uses it.
///
/// The order of its virtual operations and fields is part of what programs link against: append
/// only.
class VORN_API VORNEvent {
public:
  /// Every value other than `EVENT_ENABLED` means disabled.
  enum Mode : std::int32_t {
    EVENT_DISABLED = 0,  ///< never fires
    EVENT_ENABLED = 1,   ///< fires when it is due
  };

  /// The event is due for the first time one `period` after `start`. `id` is its slot in an event
  /// manager's table; -1 means no slot, and a number below is stored as -1. Nothing is refused
  /// here: ask `IsValid`.
  VORNEvent(const VORNNtpTime& start, const VORNNtpTime& period, int id, Mode mode);
  /// An event manager deletes through it the events that it owns.
  virtual ~VORNEvent();

  /// Checks the event at time `now`. Returns 1 when it was due; it is then due again at `now` plus
  /// the period. Returns 0, with nothing changed, when it is disabled or not yet due.
  virtual int Fired(const VORNNtpTime& now);

  /// When the event is due next. While it is disabled, the infinite time.
  VORNNtpTime DeadlineGet() const;

  /// Enables the event; it is due one period after `now`, also when it was enabled before. Returns
  /// 1, or 0 with nothing changed for a negative `now`.
  int Enable(const VORNNtpTime& now);

  /// Changes the period. The deadline becomes `now` plus `period` if that is earlier than the
  /// deadline before, or if `restart` is non-zero. Returns 1, or 0 with nothing changed when
  /// `period` or `now` is not positive.
  int PeriodSet(const VORNNtpTime& period, const VORNNtpTime& now, int restart);

  /// 1 when neither the deadline nor the period is negative, else 0.
  int IsValid() const;

protected:
  friend class VORNEventManager;

  std::int32_t _id;       ///< slot in an event manager's table; -1: none
  Mode _mode;             ///< whether the event can fire
  VORNNtpTime _deadline;  ///< when it is due next, if it is enabled
  VORNNtpTime _period;    ///< time from one firing to the next
};

#endif
