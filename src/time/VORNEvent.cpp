#include "time/VORNEvent.h"

namespace {

const VORNNtpTime ZERO;

}  // namespace

VORNEvent::VORNEvent(const VORNNtpTime& start, const VORNNtpTime& period, int id, Mode mode)
    : _id(id < -1 ? -1 : id), _mode(mode), _deadline(start + period), _period(period) {}

VORNEvent::~VORNEvent() = default;

VORNNtpTime VORNEvent::DeadlineGet() const {
  return _mode == EVENT_ENABLED ? _deadline : VORNNtpTime::Infinite();
}

int VORNEvent::Fired(const VORNNtpTime& now) {
  if (_mode != EVENT_ENABLED || now < DeadlineGet())
    return 0;
  _deadline = now + _period;
  return 1;
}

int VORNEvent::Enable(const VORNNtpTime& now) {
  if (now < ZERO)
    return 0;
  _mode = EVENT_ENABLED;
  _deadline = now + _period;
  return 1;
}

int VORNEvent::PeriodSet(const VORNNtpTime& period, const VORNNtpTime& now, int restart) {
  if (period <= ZERO || now <= ZERO)
    return 0;
  const VORNNtpTime candidate = now + period;
  _period = period;
  if (restart != 0 || candidate < _deadline)
    _deadline = candidate;
  return 1;
}

int VORNEvent::IsValid() const { return _deadline >= ZERO && _period >= ZERO ? 1 : 0; }
