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
  // The smallest second has none below to borrow: it wraps, and is negative no more.
  // clang-format off
  struct Row { int unit; long seconds; unsigned long count; int sec; std::uint32_t frac; };
  for (const Row& row : {
           Row{10, -1, 500000000, -2, 2147483650}, {12, 3, 250, 3, 1073728000}, {12, -3, 250, -4, 3221239296},
           {13, -3, 1, -4, UINT32_MAX}, {99, -1, 9, -2, UINT32_MAX - 8}, {13, INT_MIN, 0, INT_MIN, 0},
           {13, INT_MIN, 5, INT_MAX, 5},
           {12, ABOVE_32_BITS + 3, ABOVE_32_BITS + 250, 3, 1073728000}, {12, ABOVE_32_BITS - 3, 250, -4, 3221239296},
           {10, -1, ABOVE_32_BITS, -1, 0}, {12, -500, NONE, -1, 2147511296}, {13, -5, NONE, 0, 4294967291},
           {10, 500000000, NONE, 0, 2147483646}, {13, INT_MIN, NONE, 0, 2147483648}, {12, INT_MIN, NONE, -1, 0}, {12, ABOVE_32_BITS + 500, NONE, 0, 2147456000},
           {9, 5, NONE, 77, 77}, {14, 5, NONE, 77, 77}, {12, 0, NONE, 0, 0}}) {
    // clang-format on
    const auto unit = static_cast<Time::FracUnit>(row.unit);
    Time time = Words(77, 77);
    row.count == NONE ? time.Pack(row.seconds, unit) : time.Pack(row.seconds, row.count, unit);
    EXPECT_EQ(time, Words(row.sec, row.frac)) << row.seconds << ' ' << row.count << ' ' << unit;
    if (row.count != NONE && unit == Time::FRAC_NSEC) {
      EXPECT_EQ(Time(row.seconds, row.count), time) << row.seconds;
    }
  }
}

TEST(VORNNtpTime, IsMadeFromSecondsAndTheLowerLayersTimeAndGivesThem) {
  // clang-format off
  const struct Row { double seconds; std::int32_t sec; std::uint32_t frac; double back; } rows[] = {
      {2.25, 2, 1U << 30, 2.25}, {-1.5, -2, 1U << 31, -1.5}, {-1e-20, -1, UINT32_MAX, -0x1p-32},  // rounded down
      {2147483647.5, INT_MAX, 1U << 31, 2147483647.5}, {2147483648.0, INT_MAX, UINT32_MAX, 2147483648.0},
      {HUGE_VAL, INT_MAX, UINT32_MAX, 2147483648.0}, {-2147483648.0, INT_MIN, 0, -2147483648.0},
      {-2147483648.5, INT_MIN, 0, -2147483648.0}, {NAN, 0, 0, 0.0}};
  // clang-format on
  for (const Row& row : rows) {
    const Time time = Time::FromSeconds(row.seconds);
    EXPECT_EQ(time, Words(row.sec, row.frac)) << row.seconds;
    EXPECT_EQ(time.SecondsGet(), row.back) << row.seconds;
  }
  const KELNtpTime lower = Words(-7, 8).KelTimeGet();
  EXPECT_EQ(lower.sec, -7);
  EXPECT_EQ(lower.frac, 8U);
  EXPECT_EQ(Time::FromKelTime(lower), Words(-7, 8));
}

TEST(VORNNtpTime, ArithmeticAndOrderAreThoseOf64BitsWithAnInfinity) {
  std::vector<Time> edges;
  for (const std::uint32_t sec : {0U, 1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    for (const std::uint32_t frac : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU})
      edges.push_back(Words(static_cast<std::int32_t>(sec), frac));
  for (const Time& a : edges) {
    EXPECT_EQ(Joined(a.Absolute()), a.sec < 0 ? 0 - Joined(a) : Joined(a));
    for (const Time& b : edges) {
      const std::uint64_t sum = Joined(a) + Joined(b);
      const bool overflows = a.sec > 0 && b.sec > 0 && sum >> 63 != 0;
      const bool infinite = a == Time::Infinite() || b == Time::Infinite() || overflows;
      EXPECT_EQ(Joined(a + b), infinite ? Joined(Time::Infinite()) : sum);
      EXPECT_EQ(Joined(a - b), Joined(a) - Joined(b));
      const auto x = static_cast<std::int64_t>(Joined(a)), y = static_cast<std::int64_t>(Joined(b));
      EXPECT_EQ(Order(a, b), Order(x, y)) << x << ' ' << y;
    }
  }
}

TEST(VORNNtpTime, TextsAreNearestNanosecondsWithinTwentyTwoBytes) {
  const std::pair<Time, const char*> rows[] = {
      {Words(5, 42), "5.000000009"},  // the lower layer's text
      {Words(-2, 2147483650), "-1.500000000"},
      {Words(-1, UINT32_MAX), "-0.000000000"},
      {Words(-1, 1), "-1.000000000"},                // the nanoseconds reach 10^9 and carry
      {Words(INT_MIN, 1), "-2147483647.999999999"},  // no second left to carry into
      {Words(INT_MIN, 1U << 31), "-2147483647.500000000"},
      {Words(INT_MIN, 0), "-2147483648.000000000"}};
  for (const auto& [time, text] : rows)
    EXPECT_EQ(Text(time), text);
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
