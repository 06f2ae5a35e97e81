// A time is the 64-bit two's-complement number sec * 2^32 + frac, in units of 2^-32 s: -1.5 s is
// { -2, 0x80000000 }. Carries and borrows between the two words are those of that number.
//
// The decimal conversions are sums of shifts, a little below the exact value. Peers compute the
// same sums, and the results must agree with theirs in every bit: do not make them more exact.

#include "time/VORNNtpTime.h"

#include "platform/VornCDRStream.h"
#include "utils/internal/CDRLayout.h"
#include "utils/internal/WordPair.h"

#include <cstddef>
#include <cstdio>

static_assert(sizeof(VORNNtpTime) == sizeof(KELNtpTime) &&
              offsetof(VORNNtpTime, sec) == offsetof(KELNtpTime, sec) &&
              offsetof(VORNNtpTime, frac) == offsetof(KELNtpTime, frac));

namespace {

constexpr std::uint32_t NANOSECONDS = 1000000000;

WordPair PairOf(const VORNNtpTime& time) { return {time.sec, time.frac}; }

VORNNtpTime TimeOf(WordPair pair) { return VORNNtpTime::FromWords(pair.high, pair.low); }

std::uint32_t FractionFromNanoseconds(std::uint32_t n) {
  const std::uint32_t sum = n + (n >> 3) + (n >> 5) + (n >> 6) + (n >> 7) + (n >> 13) + (n >> 15) +
                            (n >> 16) + (n >> 17) + (n >> 18) + (n >> 19) + (n >> 21) + (n >> 27) +
                            (n >> 30);
  return 4 * n + (sum >> 2);
}

std::uint32_t FractionFromMicroseconds(std::uint32_t n) {
  return 4294 * n + ((15 * n + ((61 * n) >> 7)) >> 4);
}

// The factor is what peers use; the exact one would be 4294967.296.
std::uint32_t FractionFromMilliseconds(std::uint32_t n) { return 4294912 * n; }

std::uint32_t FractionFromCount(std::uint32_t count, VORNNtpTime::FracUnit unit) {
  switch (unit) {
  case VORNNtpTime::FRAC_NSEC:
    return FractionFromNanoseconds(count);
  case VORNNtpTime::FRAC_USEC:
    return FractionFromMicroseconds(count);
  case VORNNtpTime::FRAC_MSEC:
    return FractionFromMilliseconds(count);
  default:
    return count;
  }
}

// Rounded to within one of the nearest, so the result can be a whole second: 10^9.
std::uint32_t NanosecondsFromFraction(std::uint32_t f) {
  const std::uint32_t sum = (f >> 1) + (f >> 5) + (f >> 6) + (f >> 9) + (f >> 11) + (f >> 14) +
                            (f >> 15) + (f >> 17) + (f >> 18);
  return (f - ((sum + 4) >> 3) + 1) >> 2;
}

}  // namespace

VORNNtpTime::VORNNtpTime(long seconds, unsigned long nanoseconds) {
  Pack(seconds, nanoseconds, FRAC_NSEC);
}

VORNNtpTime VORNNtpTime::operator=(const VORNNtpTime& other) {
  sec = other.sec;
  frac = other.frac;
  return *this;
}

void VORNNtpTime::Pack(long seconds, unsigned long count, FracUnit unit) {
  auto whole = static_cast<std::int32_t>(seconds);
  const auto magnitude = static_cast<std::uint32_t>(count);
  // The fraction of a negative amount borrows a second. The borrow depends on the count and not on
  // the fraction: a count that is too small to give any fraction still borrows.
  if (whole < 0 && magnitude != 0)
    whole = static_cast<std::int32_t>(static_cast<std::uint32_t>(whole) - 1U);
  sec = whole;
  frac = FractionFromCount(magnitude, unit);
  if (whole < 0)
    frac = 0U - frac;
}

void VORNNtpTime::Pack(long value, FracUnit unit) {
  if (unit < FRAC_NSEC || unit > FRAC_RAW)
    return;
  const auto word = static_cast<std::int32_t>(value);
  const bool negative = word < 0;
  const auto pattern = static_cast<std::uint32_t>(word);
  const std::uint32_t fraction = FractionFromCount(negative ? 0U - pattern : pattern, unit);
  sec = negative && unit != FRAC_RAW ? -1 : 0;
  frac = negative ? 0U - fraction : fraction;
}

VORNNtpTime VORNNtpTime::operator+(const VORNNtpTime& other) const {
  if (*this == Infinite() || other == Infinite())
    return Infinite();
  const VORNNtpTime sum = TimeOf(WordPairAdd(PairOf(*this), PairOf(other)));
  return sec > 0 && other.sec > 0 && sum.sec < 0 ? Infinite() : sum;
}

VORNNtpTime VORNNtpTime::operator-(const VORNNtpTime& other) const {
  return TimeOf(WordPairSubtract(PairOf(*this), PairOf(other)));
}

VORNNtpTime VORNNtpTime::Absolute() const { return TimeOf(WordPairMagnitude(PairOf(*this))); }

char* VORNNtpTime::ToString(char* buffer, unsigned int size) const {
  if (size < TEXT_SIZE || buffer == nullptr)
    return nullptr;
  if (sec >= 0) {
    const KELNtpTime time = KelTimeGet();
    return KelNtpTimeToString(&time, buffer);
  }
  const VORNNtpTime magnitude = Absolute();
  std::uint32_t nanoseconds = NanosecondsFromFraction(magnitude.frac);
  // At the very end there is no second to carry into, and a tenth digit would not fit the buffer.
  if (magnitude.sec == INT32_MAX && nanoseconds >= NANOSECONDS)
    nanoseconds = NANOSECONDS - 1;
  // Unsigned, because the most negative time is its own magnitude: 2^31 s.
  const std::uint32_t seconds =
      static_cast<std::uint32_t>(magnitude.sec) + nanoseconds / NANOSECONDS;
  std::snprintf(buffer, TEXT_SIZE, "-%lu.%.9ld", static_cast<unsigned long>(seconds),
                static_cast<long>(nanoseconds % NANOSECONDS));
  return buffer;
}

int VORNNtpTime::Serialize(VORNCDRStream* stream) const {
  return VornCDR4ByteSerialize(stream, &sec) != 0 && VornCDR4ByteSerialize(stream, &frac) != 0;
}

int VORNNtpTime::Deserialize(VORNCDRStream* stream) {
  return VornCDR4ByteDeserialize(stream, &sec) != 0 && VornCDR4ByteDeserialize(stream, &frac) != 0;
}

int VORNNtpTime::ElementSize(int position) { return CDRElementSize(position, 8); }
