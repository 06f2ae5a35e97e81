#ifndef PLATFORM_KEL_NTP_TIME_H
#define PLATFORM_KEL_NTP_TIME_H

#include "platform/VornExport.h"

#include <cstdint>

/// The lower layer's time value: `sec` + `frac` / 2^32 seconds. The library's own `VORNNtpTime` has
/// the same two fields in the same order and widths, so no field may be added.
struct KELNtpTime {
  std::int32_t sec = 0;    ///< whole seconds, the floor of the value
  std::uint32_t frac = 0;  ///< fraction in units of 2^-32 s
};

/// Bytes that `KelNtpTimeToString` may write, terminator included.
inline constexpr unsigned int KEL_NTP_TIME_TEXT_SIZE = 22;

/// Prepares the clock and tells about it. Call it once before the first reading; more calls do no
/// harm. Either output may be null.
///
/// `clockInfo` receives the clock's resolution. `rollover` receives the amount by which readings
/// fall when the clock wraps. Returns 1; or 0, with the outputs unchanged, if the host's clock
/// cannot be read.
VORN_API int KelNtpTimeInit(KELNtpTime* clockInfo, KELNtpTime* rollover);

/// Reads the clock into `time`. Readings never fall, except at a wrap, where they fall by the
/// amount that `KelNtpTimeInit` reports. Any thread may call it. Returns 1; or 0, with
/// `time` unchanged, if `time` is null or the clock cannot be read.
VORN_API int KelNtpTimeGet(KELNtpTime* time);

/// Writes a non-negative time as seconds, a point and nine digits into `buffer`, which the caller
/// provides with at least `KEL_NTP_TIME_TEXT_SIZE` bytes. The nanoseconds are truncated, so the
/// text never reaches the next second. Returns `buffer`, or null for a null argument.
VORN_API char* KelNtpTimeToString(const KELNtpTime* time, char* buffer);

#endif
