#ifndef TIME_VORN_CLOCK_CLASS_H
#define TIME_VORN_CLOCK_CLASS_H

#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

/// The clock that the middleware reads. The order of its virtual operations is part of what
/// programs link against: append only.
class VORN_API VORNClockClass {
public:
  /// Frees what the clock holds; nobody may be reading it.
  virtual ~VORNClockClass();
  /// Writes the current time into `time`. A null `time` is ignored.
  virtual void TimeGet(KELNtpTime* time) = 0;
  /// 1 when the clock can be used, else 0.
  virtual int IsValid() const = 0;
};

#endif
