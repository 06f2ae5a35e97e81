// Readings are the low 30 bits of the seconds since 1900, with a 32-bit fraction. Thirty bits, so
// that a reading corrected for one wrap still is a positive 32-bit number: a process may run for 34
// years before its corrected time does not fit. The next wrap falls on the end of the first NTP
// era, in February 2036; the reading then drops from 1073741823 to 0.
//
// The wall clock is read once and the monotonic clock is added to it, because a wall clock that is
// set back by a second would look exactly like a wrap.

#include "platform/KelNtpTime.h"

#include <bit>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr std::int64_t SECONDS_1900_TO_1970 = 2208988800;
constexpr std::int32_t ROLLOVER_SECONDS = std::int32_t{1} << 30;
constexpr std::int64_t NANOSECONDS = 1000000000;

// What must be added to the monotonic clock to get the time since 1900. The nanoseconds are 0 to
// 999999999. Seconds and nanoseconds stay apart all the way: a reading then needs no division.
struct Offset {
  std::int64_t seconds;
  std::int64_t nanoseconds;
};

Offset OffsetMeasure() {
  timespec wall{};
  timespec monotonic{};
  // Cannot fail where a reading succeeds; if it did, time would begin in 1970.
  static_cast<void>(clock_gettime(CLOCK_REALTIME, &wall));
  static_cast<void>(clock_gettime(CLOCK_MONOTONIC, &monotonic));
  Offset offset{wall.tv_sec - std::int64_t{monotonic.tv_sec} + SECONDS_1900_TO_1970,
                wall.tv_nsec - std::int64_t{monotonic.tv_nsec}};
  if (offset.nanoseconds < 0)
    offset = {offset.seconds - 1, offset.nanoseconds + NANOSECONDS};
  return offset;
}

// Fixed for the process at the first call.
const Offset& OffsetGet() {
  static const Offset offset = OffsetMeasure();
  return offset;
}

// Rounded down, so that a fraction below one second stays below 2^32. The compiler multiplies: the
// divisor is a constant.
std::uint32_t FractionOf(std::int64_t nanoseconds) {
  return static_cast<std::uint32_t>((static_cast<std::uint64_t>(nanoseconds) << 32) /
                                    static_cast<std::uint64_t>(NANOSECONDS));
}

// Both words in one store. The clock loads them together, and a processor would wait there until
// two stores have left it.
void TimeStore(KELNtpTime* time, std::uint32_t seconds, std::uint32_t fraction) {
  constexpr bool IS_BIG = std::endian::native == std::endian::big;
  const std::uint64_t first = IS_BIG ? fraction : seconds;
  const std::uint64_t second = IS_BIG ? seconds : fraction;
  const std::uint64_t words = second << 32 | first;
  std::memcpy(static_cast<void*>(time), &words, sizeof words);
}

}  // namespace

int KelNtpTimeInit(KELNtpTime* clockInfo, KELNtpTime* rollover) {
  timespec now{};
  timespec resolution{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0 || clock_getres(CLOCK_MONOTONIC, &resolution) != 0)
    return 0;
  OffsetGet();
  if (clockInfo != nullptr)
    *clockInfo = {static_cast<std::int32_t>(resolution.tv_sec), FractionOf(resolution.tv_nsec)};
  if (rollover != nullptr)
    *rollover = {ROLLOVER_SECONDS, 0};
  return 1;
}

int KelNtpTimeGet(KELNtpTime* time) {
  timespec now{};
  if (time == nullptr || clock_gettime(CLOCK_MONOTONIC, &now) != 0)
    return 0;
  const Offset& offset = OffsetGet();
  std::int64_t seconds = now.tv_sec + offset.seconds;
  std::int64_t nanoseconds = now.tv_nsec + offset.nanoseconds;
  if (nanoseconds >= NANOSECONDS) {
    nanoseconds -= NANOSECONDS;
    ++seconds;
  }
  TimeStore(time, static_cast<std::uint32_t>(seconds & (ROLLOVER_SECONDS - 1)),
            FractionOf(nanoseconds));
  return 1;
}

char* KelNtpTimeToString(const KELNtpTime* time, char* buffer) {
  if (time == nullptr || buffer == nullptr)
    return nullptr;
  const std::uint64_t nanoseconds = (std::uint64_t{time->frac} * 1000000000U) >> 32;
  std::snprintf(buffer, KEL_NTP_TIME_TEXT_SIZE, "%" PRId32 ".%.9" PRIu32, time->sec,
                static_cast<std::uint32_t>(nanoseconds));
  return buffer;
}
