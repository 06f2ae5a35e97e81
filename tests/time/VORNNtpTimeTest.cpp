#include "time/VORNNtpTime.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// What a long may hold above the 32 bits that are read of it; nothing on a 32-bit host.
constexpr long ABOVE_32_BITS = static_cast<long>(1LL << 32);

using Time = VORNNtpTime;

constexpr auto Words = Time::FromWords;

std::uint64_t Joined(const Time& time) {
  return (std::uint64_t{static_cast<std::uint32_t>(time.sec)} << 32) | time.frac;
}

// The text, after checking that nothing lies behind the 22 bytes that a caller must provide.
std::string Text(const Time& time) {
  std::string buffer(32, '\x5a');
  EXPECT_EQ(time.ToString(buffer.data(), Time::TEXT_SIZE), buffer.data());
  EXPECT_EQ(buffer.substr(Time::TEXT_SIZE), std::string(32 - Time::TEXT_SIZE, '\x5a'));
  return buffer.c_str();
}

TEST(VORNNtpTime, ConversionsStayWithinTheirErrorAndNeverAboveTheExactFraction) {
  struct Row {
    Time::FracUnit unit;
    std::uint32_t perSecond, stride;
    std::uint64_t maxBelow;  // units of 2^-32 s under the exact floor
    std::uint64_t digest;    // of every result of the sweep, from a separate reference
  };
  for (const Row& row : {Row{Time::FRAC_NSEC, 1000000000, 997, 3, 18163253138605217348U},
                         Row{Time::FRAC_USEC, 1000000, 1, 11, 3950841435370410599U},
                         Row{Time::FRAC_MSEC, 1000, 1, 55296, 8377916633053107200U}}) {
    std::uint64_t digest = 0;
    const auto fraction = [&](std::uint32_t n) {
      Time time;
      time.Pack(0, n, row.unit);
      const std::uint64_t exact = (std::uint64_t{n} << 32) / row.perSecond;
      EXPECT_TRUE(time.frac <= exact && exact - time.frac <= row.maxBelow) << n << ' ' << time.frac;
      return time.frac;
    };
    for (std::uint32_t n = 0; n < row.perSecond; n += row.stride)
      digest = digest * 31 + fraction(n);
    EXPECT_EQ(digest, row.digest) << row.unit;
    for (std::uint32_t i = 1; i <= 1000; ++i)
      fraction(row.perSecond - i), fraction(i - 1);
  }
}

TEST(VORNNtpTime, PacksSignsBorrowsAndTheLowWordOfLongs) {
  struct Row {
    long seconds;
    unsigned long count;
    int unit, sec;
    std::uint32_t frac;
  };
  // The smallest second has none below to borrow: it wraps, and is negative no more.
  for (const Row& row :
       {Row{0, 500000000, 10, 0, 2147483646}, Row{-1, 500000000, 10, -2, 2147483650},
        Row{0, 999999999, 10, 0, 4294967289}, Row{-1, 0, 10, -1, 0}, Row{1, 0, 10, 1, 0},
        Row{0, 1000, 11, 0, 4294967}, Row{0, 500000, 11, 0, 2147483642},
        Row{3, 250, 12, 3, 1073728000}, Row{-3, 250, 12, -4, 3221239296},
        Row{-3, 1, 13, -4, UINT32_MAX}, Row{-1, 9, 99, -2, UINT32_MAX - 8},
        Row{INT_MIN, 0, 13, INT_MIN, 0}, Row{INT_MIN, 5, 13, INT_MAX, 5},
        Row{ABOVE_32_BITS + 3, ABOVE_32_BITS + 250, 12, 3, 1073728000},
        Row{ABOVE_32_BITS - 3, 250, 12, -4, 3221239296}, Row{-1, ABOVE_32_BITS, 10, -1, 0}}) {
    Time time = Words(77, 77);
    time.Pack(row.seconds, row.count, static_cast<Time::FracUnit>(row.unit));
    EXPECT_EQ(time, Words(row.sec, row.frac)) << row.seconds << ' ' << row.count;
    EXPECT_TRUE(row.unit != 10 || Time(row.seconds, row.count) == time);
  }
  for (const Row& row :
       {// one count, in the place of the seconds
        Row{-500, 0, 12, -1, 2147511296}, Row{500, 0, 12, 0, 2147456000},
        Row{-500000, 0, 11, -1, 2147483654}, Row{-500000000, 0, 10, -1, 2147483650},
        Row{-5, 0, 13, 0, 4294967291}, Row{INT_MIN, 0, 13, 0, 2147483648},
        Row{INT_MIN, 0, 12, -1, 0}, Row{ABOVE_32_BITS + 500, 0, 12, 0, 2147456000},
        Row{5, 0, 9, 77, 77}, Row{5, 0, 14, 77, 77}}) {
    Time time = Words(77, 77);
    time.Pack(row.seconds, static_cast<Time::FracUnit>(row.unit));
    EXPECT_EQ(time, Words(row.sec, row.frac)) << row.seconds << ' ' << row.unit;
  }
}

TEST(VORNNtpTime, ArithmeticAndOrderAreThoseOf64BitsWithAnInfinity) {
  const auto each = [](const auto& visit) {
    for (const std::uint32_t sec : {0U, 1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
      for (const std::uint32_t frac : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU})
        visit(Words(static_cast<std::int32_t>(sec), frac));
  };
  each([&](const Time& a) {
    EXPECT_EQ(Joined(a.Absolute()), a.sec < 0 ? 0 - Joined(a) : Joined(a));
    each([&](const Time& b) {
      const std::uint64_t sum = Joined(a) + Joined(b);
      const bool overflows = a.sec > 0 && b.sec > 0 && sum >> 63 != 0;
      const bool infinite = a == Time::Infinite() || b == Time::Infinite() || overflows;
      EXPECT_EQ(Joined(a + b), infinite ? Joined(Time::Infinite()) : sum);
      EXPECT_EQ(Joined(a - b), Joined(a) - Joined(b));
      const auto x = static_cast<std::int64_t>(Joined(a)), y = static_cast<std::int64_t>(Joined(b));
      EXPECT_TRUE((a < b) == (x < y) && (a <= b) == (x <= y) && (a == b) == (x == y));
      EXPECT_TRUE((a > b) == (x > y) && (a >= b) == (x >= y) && (a != b) == (x != y));
    });
  });
}

TEST(VORNNtpTime, TextsAreNearestNanosecondsWithinTwentyTwoBytes) {
  EXPECT_EQ(Text(Words(5, 42)), "5.000000009");  // the lower layer's text
  EXPECT_EQ(Text(Time(-1, 500000000)), "-1.500000000");
  EXPECT_EQ(Text(Words(-1, UINT32_MAX)), "-0.000000000");
  EXPECT_EQ(Text(Words(-1, 1)), "-1.000000000");  // the nanoseconds reach 10^9 and carry
  EXPECT_EQ(Text(Words(INT_MIN + 1, 1)), "-2147483647.000000000");
  EXPECT_EQ(Text(Words(INT_MIN, 1)), "-2147483647.999999999");  // no second left to carry into
  EXPECT_EQ(Text(Words(INT_MIN, 0)), "-2147483648.000000000");
  std::uint64_t digest = 0;
  for (std::uint64_t f = 0; f <= UINT32_MAX; f += 65521) {
    const std::string text = Text(Words(0, 0) - Words(1, static_cast<std::uint32_t>(f)));
    const std::uint64_t nanoseconds =
        (text[1] == '2' ? 1000000000U : 0U) + std::strtoul(text.c_str() + 3, nullptr, 10);
    const std::uint64_t nearest = (f * 1000000000U + (1U << 31)) >> 32;
    EXPECT_TRUE(nanoseconds + 1 >= nearest && nanoseconds <= nearest + 1) << f << ' ' << text;
    digest = digest * 31 + nanoseconds;
  }
  EXPECT_EQ(digest, 1349602461540853301U);
  for (const Time& time : {Words(1, 0), Words(-1, 0)}) {
    char buffer[Time::TEXT_SIZE] = "untouched";
    EXPECT_EQ(time.ToString(buffer, 0), nullptr);
    EXPECT_EQ(time.ToString(buffer, Time::TEXT_SIZE - 1), nullptr);
    EXPECT_EQ(time.ToString(nullptr, Time::TEXT_SIZE), nullptr);
    EXPECT_STREQ(buffer, "untouched");
  }
}

}  // namespace
