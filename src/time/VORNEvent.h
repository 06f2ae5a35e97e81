#ifndef TIME_VORN_EVENT_H
#define TIME_VORN_EVENT_H

#include "platform/VornExport.h"
#include "time/VORNNtpTime.h"

#include <cstdint>

/// A periodic timer: armed, it fires at the first check at or past its deadline and is then due one
/// period after that check, so late checks build up no backlog. It reads no clock; whoever asks
/// says what time it is. Derive from it to do something when it fires. One thread at a time.
class VORN_API VORNEvent {
public:
  /// Every value other than `EVENT_ENABLED` means disabled.
  enum Mode : std::int32_t { EVENT_DISABLED = 0, EVENT_ENABLED = 1 };

  /// First due one `period` after `start`. `id` is the slot in an event manager's table; anything
  /// below -1 is stored as -1, no slot. Nothing is refused here: ask `IsValid`.
  VORNEvent(const VORNNtpTime& start, const VORNNtpTime& period, int id, Mode mode);
  virtual ~VORNEvent();

  /// Checks the event at time `now`. Returns 1 when it was due, and it is due again at `now` plus
  /// the period; else 0 with nothing changed.
  virtual int Fired(const VORNNtpTime& now);

  /// When the event is due next: the infinite time while it is disabled.
  VORNNtpTime DeadlineGet() const;

  /// Arms the event, or arms it anew, one period from `now`. Returns 1, or 0 for a negative `now`.
  int Enable(const VORNNtpTime& now);

  /// Changes the period. A pending deadline comes forward to `now` plus `period` if that is
  /// earlier, and moves there in any case when `restart` is non-zero. Returns 1, or 0 with nothing
  /// changed when `period` or `now` is not positive.
  int PeriodSet(const VORNNtpTime& period, const VORNNtpTime& now, int restart);

  /// 1 when neither deadline nor period is negative, else 0.
  int IsValid() const;

protected:
  friend class VORNEventManager;

  std::int32_t _id;
  Mode _mode;
  VORNNtpTime _deadline;
  VORNNtpTime _period;
};

#endif
