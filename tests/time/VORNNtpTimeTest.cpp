#include "time/VORNNtpTime.h"

#include "support/Results.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Time = VORNNtpTime;

constexpr auto Words = Time::FromWords;

std::uint64_t Joined(const Time& time) {
  return (std::uint64_t{static_cast<std::uint32_t>(time.sec)} << 32) | time.frac;
}

// The text, after checking that nothing is written after the 22 bytes that a caller must provide.
std::string Text(const Time& time) {
  std::string buffer(32, '\x5a');
  EXPECT_EQ(time.ToString(buffer.data(), Time::TEXT_SIZE), buffer.data());
  EXPECT_EQ(buffer.substr(Time::TEXT_SIZE), std::string(32 - Time::TEXT_SIZE, '\x5a'));
  return buffer.substr(0, buffer.find('\0'));
}

TEST(VORNNtpTime, ConversionsStayWithinTheirErrorAndNeverAboveTheExactFraction) {
  // Units of 2^-32 s under the exact floor; the sum, of every result, is from a separate reference.
  const auto expect = [](Time::FracUnit unit, std::uint32_t perSecond, std::uint32_t stride,
                         std::uint64_t maxBelow, std::uint64_t sum) {
    std::uint64_t digest = 0;
    for (std::uint32_t n = 0; n < perSecond; n += stride) {
      Time time;
      time.Pack(0, n, unit);
      EXPECT_LE((std::uint64_t{n} << 32) / perSecond - time.frac, maxBelow) << n;
      digest = digest * 31 + time.frac;
    }
    EXPECT_EQ(digest, sum) << unit;
  };
  expect(Time::FRAC_NSEC, 1000000000, 997, 3, 18163253138605217348U);
  expect(Time::FRAC_USEC, 1000000, 1, 11, 3950841435370410599U);
  expect(Time::FRAC_MSEC, 1000, 1, 55296, 8377916633053107200U);
}

TEST(VORNNtpTime, PacksSignsBorrowsAndTheLowWordOfLongs) {
  constexpr unsigned long NONE = 77;  // one count only, in the place of the seconds
  const auto expect = [](int unit, long seconds, unsigned long count, int sec, std::uint32_t frac) {
    const auto packed = static_cast<Time::FracUnit>(unit);
    Time time = Words(77, 77);
    count == NONE ? time.Pack(seconds, packed) : time.Pack(seconds, count, packed);
    EXPECT_EQ(time, Words(sec, frac)) << seconds << ' ' << count << ' ' << unit;
  };
  expect(12, ABOVE_32_BITS + 3, ABOVE_32_BITS + 250, 3, 1073728000);
  expect(12, ABOVE_32_BITS - 3, 250, -4, 3221239296);
  expect(10, -1, ABOVE_32_BITS, -1, 0);
  expect(99, -3, 1, -4, UINT32_MAX);
  expect(13, INT_MIN, 5, INT_MAX, 5);  // none below to borrow: it wraps, and is negative no more
  expect(12, ABOVE_32_BITS + 500, NONE, 0, 2147456000);
  expect(12, -500, NONE, -1, 2147511296);
  expect(12, INT_MIN, NONE, -1, 0);
  expect(12, 0, NONE, 0, 0);
  expect(10, 500000000, NONE, 0, 2147483646);
  expect(13, -5, NONE, 0, 4294967291);
  expect(9, 5, NONE, 77, 77);
  expect(14, 5, NONE, 77, 77);
  EXPECT_EQ(Time(-1, 500000000), Words(-2, 2147483650));
}

TEST(VORNNtpTime, IsMadeFromSecondsAndTheLowerLayersTimeAndGivesThem) {
  const auto expect = [](double seconds, std::int32_t sec, std::uint32_t frac, double back) {
    const Time time = Time::FromSeconds(seconds);
    EXPECT_EQ(time, Words(sec, frac)) << seconds;
    EXPECT_EQ(time.SecondsGet(), back) << seconds;
  };
  expect(2.25, 2, 1U << 30, 2.25);
  expect(-1.5, -2, 1U << 31, -1.5);
  expect(-1e-20, -1, UINT32_MAX, -0x1p-32);  // rounded down
  expect(2147483647.5, INT_MAX, 1U << 31, 2147483647.5);
  expect(2147483648.0, INT_MAX, UINT32_MAX, 2147483648.0);
  expect(HUGE_VAL, INT_MAX, UINT32_MAX, 2147483648.0);
  expect(-2147483648.5, INT_MIN, 0, -2147483648.0);
  expect(NAN, 0, 0, 0.0);
  EXPECT_EQ(Time::FromKelTime(Words(-7, 8).KelTimeGet()), Words(-7, 8));
}

TEST(VORNNtpTime, ArithmeticAndOrderAreThoseOf64BitsWithAnInfinity) {
  std::vector<Time> edges;
  for (const std::uint32_t sec : {0U, 1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    for (const std::uint32_t frac : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU})
      edges.push_back(Words(static_cast<std::int32_t>(sec), frac));
  for (const Time& a : edges) {
    EXPECT_EQ(Joined(a.Absolute()), a.sec < 0 ? 0 - Joined(a) : Joined(a)) << Joined(a);
    for (const Time& b : edges) {
      const auto x = static_cast<std::int64_t>(Joined(a)), y = static_cast<std::int64_t>(Joined(b));
      const std::uint64_t sum = Joined(a) + Joined(b);
      const bool overflows = a.sec > 0 && b.sec > 0 && sum >> 63 != 0;
      const bool infinite = a == Time::Infinite() || b == Time::Infinite() || overflows;
      EXPECT_EQ(Joined(a + b), infinite ? Joined(Time::Infinite()) : sum) << x << ' ' << y;
      EXPECT_EQ(Joined(a - b), Joined(a) - Joined(b)) << x << ' ' << y;
      EXPECT_EQ(Order(a, b), Order(x, y)) << x << ' ' << y;
    }
  }
}

TEST(VORNNtpTime, TextsAreNearestNanosecondsWithinTwentyTwoBytes) {
  EXPECT_EQ(Text(Words(5, 42)), "5.000000009");  // the lower layer's text
  EXPECT_EQ(Text(Words(-2, 2147483650)), "-1.500000000");
  EXPECT_EQ(Text(Words(-1, UINT32_MAX)), "-0.000000000");
  EXPECT_EQ(Text(Words(-1, 1)), "-1.000000000");  // the nanoseconds reach 10^9 and carry
  EXPECT_EQ(Text(Words(INT_MIN, 1)), "-2147483647.999999999");  // no second left to carry into
  EXPECT_EQ(Text(Words(INT_MIN, 1U << 31)), "-2147483647.500000000");
  EXPECT_EQ(Text(Words(INT_MIN, 0)), "-2147483648.000000000");
  std::uint64_t digest = 0;
  for (std::uint64_t f = 0; f <= UINT32_MAX; f += 65521) {
    const std::string text = Text(Words(0, 0) - Words(1, static_cast<std::uint32_t>(f)));
    const std::uint64_t nanoseconds =
        (text[1] == '2' ? 1000000000U : 0U) + std::strtoul(text.c_str() + 3, nullptr, 10);
    const std::uint64_t nearest = (f * 1000000000U + (1U << 31)) >> 32;
    EXPECT_LE(nanoseconds - nearest + 1, 2U) << f << ' ' << text;  // at most one off
    digest = digest * 31 + nanoseconds;
  }
  EXPECT_EQ(digest, 1349602461540853301U);
  char buffer[] = "untouched";
  for (const int sec : {1, -1}) {
    EXPECT_EQ(Words(sec, 0).ToString(buffer, Time::TEXT_SIZE - 1), nullptr);
    EXPECT_EQ(Words(sec, 0).ToString(nullptr, Time::TEXT_SIZE), nullptr);
  }
  EXPECT_STREQ(buffer, "untouched");
}

}  // namespace
