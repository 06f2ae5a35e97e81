#ifndef TIME_VORN_CLOCK_H
#define TIME_VORN_CLOCK_H

#include "platform/KelMutex.h"
#include "time/VORNClockClass.h"

#include <cstdint>

/// The lower layer's clock, which goes on here when it wraps there. The lower layer says by how
/// much its readings fall at a wrap. Each time the seconds of a reading have fallen, this amount is
/// added to all readings from then on. A fall within one second is not taken for a wrap.
///
/// A wrap shows only as a fall from the reading before. So call `TimeGet` at least twice in every
/// period of the lower clock (about 34 years with the one in this project), and let no call, with
/// the pause after it, last as long as a period. Otherwise a wrap can be missed, and the time
/// falls.
///
/// Any number of threads may call `TimeGet` on one clock. Nothing is locked unless a wrap is being
/// corrected. The clock owns its mutex; it is neither copied nor moved.
///
/// The order of its virtual operations and fields is part of what programs link against: append
/// only.
class VORN_API VORNClock : public VORNClockClass {
public:
  /// Asks the lower layer how far its readings fall at a wrap and makes the mutex. Test `IsValid`.
  VORNClock();
  /// Frees the mutex; nobody may be reading the clock.
  ~VORNClock() override;
  VORNClock(const VORNClock&) = delete;
  VORNClock& operator=(const VORNClock&) = delete;

  /// Writes the corrected time; a null `time` is ignored. Do not call it on an invalid clock.
  void TimeGet(KELNtpTime* time) override;
  /// 1 when the mutex exists, else 0.
  int IsValid() const override;

protected:
  // _offset, _lastSeconds and _generation are read and written by many threads, and only through
  // atomic references: see VORNClock.cpp.
  KELNtpTime _offset;     ///< added to every reading
  KELNtpTime _rollover;   ///< added to `_offset` on each wrap
  KELNtpTime _clockInfo;  ///< what else the lower layer said at the start; it is not read
  KELMutex* _clockMutex;  ///< held while `_offset` changes; null: invalid
  /// Seconds of the latest reading, with the offset under which it was made.
  std::int32_t _lastSeconds = 0;
  std::uint32_t _generation = 0;  ///< counts changes of `_offset`; all ones during a change
};

#endif
