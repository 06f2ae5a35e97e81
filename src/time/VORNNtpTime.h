#ifndef TIME_VORN_NTP_TIME_H
#define TIME_VORN_NTP_TIME_H

#include "platform/KelNtpTime.h"
#include "platform/VornExport.h"

#include <cmath>
#include <cstdint>

struct VORNCDRStream;

/// A point in time or a duration: `sec` + `frac` / 2^32 seconds. The fraction is never negative:
/// for a negative time, `sec` is the whole second below it, so -1.5 s is sec -2, frac 2147483648.
/// The largest value stands for the infinite time.
///
/// A plain value; it allocates nothing and takes no lock. Arguments of type `long` are read by
/// their low 32 bits, on every host. It has the two fields of the lower layer's `KELNtpTime`. Size
/// and order of the fields are part of what programs link against: nothing can be added.
class VORN_API VORNNtpTime {
public:
  std::int32_t sec = 0;    ///< whole seconds, the floor of the value
  std::uint32_t frac = 0;  ///< fraction in units of 2^-32 s

  /// Unit of a sub-second count.
  enum FracUnit : std::int32_t {
    FRAC_NSEC = 10,  ///< nanoseconds, below 10^9
    FRAC_USEC = 11,  ///< microseconds, below 10^6
    FRAC_MSEC = 12,  ///< milliseconds, below 1000
    FRAC_RAW = 13,   ///< units of 2^-32 s
  };

  /// Bytes that `ToString` needs, terminator included.
  static constexpr unsigned int TEXT_SIZE = 22;

  /// The time zero.
  VORNNtpTime() = default;
  /// What `Pack(seconds, nanoseconds, FRAC_NSEC)` gives.
  VORNNtpTime(long seconds, unsigned long nanoseconds);
  /// A copy.
  VORNNtpTime(const VORNNtpTime&) = default;
  /// Copies both fields. Returns a copy of the new value, not a reference to it.
  VORNNtpTime operator=(const VORNNtpTime& other);
  /// Frees nothing.
  ~VORNNtpTime() = default;

  /// The infinite time, later than every other.
  static VORNNtpTime Infinite() { return FromWords(INT32_MAX, UINT32_MAX); }
  /// The time with these two words, as they are.
  static VORNNtpTime FromWords(std::int32_t sec, std::uint32_t frac) {
    VORNNtpTime time;
    time.sec = sec;
    time.frac = frac;
    return time;
  }

  /// The time that a value of the lower layer stands for: the same two words.
  static VORNNtpTime FromKelTime(const KELNtpTime& time) { return FromWords(time.sec, time.frac); }
  /// The same time for an operation of the lower layer.
  KELNtpTime KelTimeGet() const { return {sec, frac}; }

  /// The time of `seconds`, rounded down to a multiple of 2^-32 s. The infinite time from
  /// 2147483648 on, the most negative time below -2147483648, and zero for what is not a number.
  static VORNNtpTime FromSeconds(double seconds) {
    if (std::isnan(seconds))
      return VORNNtpTime();
    if (seconds >= 2147483648.0)
      return Infinite();
    if (seconds < -2147483648.0)
      return FromWords(INT32_MIN, 0);
    const auto units = static_cast<std::int64_t>(std::floor(seconds * 4294967296.0));
    return FromWords(static_cast<std::int32_t>(units >> 32), static_cast<std::uint32_t>(units));
  }
  /// The time in seconds, as the nearest `double`: up to 2^21 s that is exact, at the ends of the
  /// range it is 2^-23 s away at most. The infinite time is 2147483648.
  double SecondsGet() const { return sec + frac / 4294967296.0; }

  /// Sets the time from a sign and a magnitude. The sign of `seconds` applies to the whole amount:
  /// (-1, 500000000 ns) is -1.5 s. `count` is less than one second in its unit; a larger one wraps.
  /// Decimal units are converted by shifts and adds. The result is a few units of 2^-32 s below the
  /// exact value, for milliseconds up to 0.0013 %. An unknown unit is treated as `FRAC_RAW`.
  void Pack(long seconds, unsigned long count, FracUnit unit);

  /// Sets the time to a signed amount of less than one second. `FRAC_RAW` stores the 32-bit pattern
  /// of `value` as the fraction, with zero seconds. An unknown unit leaves the time as it was.
  void Pack(long value, FracUnit unit);

  /// The sum. It is infinite when either time is, and when two times of a second or more overflow.
  /// Two negative times that overflow wrap.
  VORNNtpTime operator+(const VORNNtpTime& other) const;
  /// The difference. It wraps, and the infinite time counts as the number that it is stored as.
  VORNNtpTime operator-(const VORNNtpTime& other) const;
  /// The magnitude. The most negative time has none; it is returned unchanged.
  VORNNtpTime Absolute() const;

  /// Whether both fields are equal.
  bool operator==(const VORNNtpTime& other) const { return sec == other.sec && frac == other.frac; }
  /// Whether a field differs.
  bool operator!=(const VORNNtpTime& other) const { return !(*this == other); }
  /// Earlier: times are ordered by `sec`, then by `frac`.
  bool operator<(const VORNNtpTime& other) const {
    return sec != other.sec ? sec < other.sec : frac < other.frac;
  }
  /// Later.
  bool operator>(const VORNNtpTime& other) const { return other < *this; }
  /// Earlier or equal.
  bool operator<=(const VORNNtpTime& other) const { return !(other < *this); }
  /// Later or equal.
  bool operator>=(const VORNNtpTime& other) const { return !(*this < other); }

  /// Writes the time in seconds with nine decimals into `buffer` of `size` bytes, and returns
  /// `buffer`. Writes at most `TEXT_SIZE` bytes. Returns null, with nothing written, when `size` is
  /// below `TEXT_SIZE` or `buffer` is null.
  char* ToString(char* buffer, unsigned int size) const;

  /// Writes `sec`, then `frac`, as two 4-byte items in the stream's byte order. Returns 1, or 0 at
  /// the first item that fails.
  int Serialize(VORNCDRStream* stream) const;
  /// Reads what `Serialize` writes. Returns 1, or 0 at the first item that fails. When the second
  /// one fails, `sec` has been replaced.
  int Deserialize(VORNCDRStream* stream);

  /// Bytes that a time takes when it is written at stream position `position`: 8, and up to 3 of
  /// padding.
  static int ElementSize(int position);
};

#endif
