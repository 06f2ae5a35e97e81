#ifndef NET_INTERNAL_SELECT_TIME_H
#define NET_INTERNAL_SELECT_TIME_H

#include "platform/KelNtpTime.h"

#include <cstdint>

/// A time as `select` takes it.
struct SelectTime {
  std::int32_t seconds;
  std::uint32_t microseconds;
};

/// Converts by shifts, to within half a microsecond. A fraction that rounds to a whole second adds
/// one to the seconds; but the largest number of seconds stays, with 1000000 microseconds.
constexpr SelectTime SelectTimeFrom(const KELNtpTime& time) {
  const std::uint32_t f = time.frac;
  const std::uint32_t microseconds = (f - (f >> 5) - (f >> 7) - (f >> 8) - (f >> 9) - (f >> 10) -
                                      (f >> 12) - (f >> 13) - (f >> 14) + 2048) >>
                                     12;
  if (microseconds > 999999 && time.sec != INT32_MAX)
    return {time.sec + 1, microseconds - 1000000};
  return {time.sec, microseconds};
}

#endif
