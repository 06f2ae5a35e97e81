#ifndef FILECAST_WIRE_DURATION_H
#define FILECAST_WIRE_DURATION_H

#include "time/VORNNtpTime.h"

#include <cmath>

/// Durations of the command line and of the summary. Less than 2^31 seconds, not negative.
inline VORNNtpTime DurationOf(double seconds) {
  const double whole = std::floor(seconds);
  return VORNNtpTime::FromWords(static_cast<std::int32_t>(whole),
                                static_cast<std::uint32_t>((seconds - whole) * 4294967296.0));
}

inline double SecondsOf(const VORNNtpTime& time) { return time.sec + time.frac / 4294967296.0; }

#endif
