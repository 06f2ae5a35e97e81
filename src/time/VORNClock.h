#ifndef TIME_VORN_CLOCK_H
#define TIME_VORN_CLOCK_H

#include "platform/KelMutex.h"
#include "time/VORNClockClass.h"

#include <cstdint>

/// The lower layer's clock, made to go on when that clock wraps: each time its seconds fall, the
/// amount by which that clock says it falls at a wrap is added to every later reading. A fall
/// within one second is not taken for a wrap.
///
/// Any number of threads may call `TimeGet` on one clock. Nothing is locked unless a wrap is being
/// corrected. The clock owns its mutex; it is neither copied nor moved.
class VORN_API VORNClock : public VORNClockClass {
public:
  /// Asks the lower layer how far its readings fall at a wrap and makes the mutex. Test `IsValid`.
  VORNClock();
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
  KELNtpTime _clockInfo;  ///< what else the lower layer said at the start; kept, not read
  KELMutex* _clockMutex;  ///< held while `_offset` changes; null: invalid
  std::int32_t _lastSeconds =
      0;  ///< seconds of the latest reading, with the offset it was read under
  std::uint32_t _generation = 0;  ///< counts changes of `_offset`; all ones while one goes on
};

#endif
