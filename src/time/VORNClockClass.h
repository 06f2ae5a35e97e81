#ifndef TIME_VORN_CLOCK_CLASS_H
#define TIME_VORN_CLOCK_CLASS_H

#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// The clock that the middleware reads.
class VORN_API VORNClockClass {
public:
  virtual ~VORNClockClass();
  /// Writes the current time into `time`; a null `time` is ignored.
  virtual void TimeGet(KELNtpTime* time) = 0;
  /// 1 when the clock can be used, else 0.
  virtual int IsValid() const = 0;
};

#endif
