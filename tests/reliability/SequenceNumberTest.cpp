#include "reliability/SequenceNumber.h"

#include "support/Results.h"
#include "support/ScriptedLayer.h"
#include "utils/VORNUtilsDiag.h"

#include <algorithm>
#include <climits>

namespace {

std::uint64_t Joined(const SequenceNumber& number) {
  return static_cast<std::uint64_t>(number.IntegerGet());
}

TEST(SequenceNumber, ComputesAndOrdersLikeA64BitInteger) {
  std::vector<std::uint64_t> edges{0};  // 2^k, its neighbours and their negatives
  for (std::uint64_t power = 1; power != 0; power *= 2)
    edges.insert(edges.end(), {power - 1, power, power + 1, 1 - power, 0 - power, 0 - power - 1});
  for (const std::uint64_t a : edges) {
    const auto x = static_cast<std::int64_t>(a);
    SCOPED_TRACE(x);
    const SequenceNumber number = SequenceNumber::FromInteger(x);
    EXPECT_EQ(number.low, static_cast<std::uint32_t>(a));
    EXPECT_EQ(static_cast<std::uint32_t>(number.high), a >> 32);
    EXPECT_EQ(number.IntegerGet(), x);
    EXPECT_EQ(Joined(number.Absolute()), x < 0 ? 0 - a : a);
    SequenceNumber counter = number;
    EXPECT_EQ(Joined(counter++), a);
    EXPECT_EQ(Joined(counter), a + 1);
    for (const std::uint64_t b : edges) {
      const auto y = static_cast<std::int64_t>(b);
      const SequenceNumber other = SequenceNumber::FromInteger(y);
      EXPECT_EQ(Joined(number + other), a + b) << y;
      EXPECT_EQ(Joined(number - other), a - b) << y;
      const std::uint64_t apart = std::min<std::uint64_t>(x < y ? b - a : a - b, INT_MAX);
      EXPECT_EQ(number.Distance(other), static_cast<int>(apart)) << y;
      EXPECT_EQ(Order(number, other), Order(x, y)) << y;
      const int n = static_cast<int>(y);
      if (n != y)
        continue;
      SequenceNumber sum = number;
      EXPECT_EQ(Joined(sum.Add(n)), a + b) << y;
      EXPECT_EQ(Joined(sum), a + b) << y;
      EXPECT_EQ(Joined(number + n), a + b) << y;
      EXPECT_EQ(Joined(number - n), a - b) << y;
      EXPECT_EQ(Joined(SequenceNumber(n)), b) << y;
    }
  }
}

TEST(SequenceNumber, ReadsPairsAsSignAndMagnitudeAndShowsThem) {
  const auto expect = [](const SequenceNumber& number, std::uint64_t stored, const char* text,
                         const char* printed) {
    EXPECT_EQ(Joined(number), stored) << text;
    char buffer[SequenceNumber::TEXT_SIZE];
    EXPECT_STREQ(number.ToString(buffer, 0), text);
    ScriptReset();
    VornUtilsVerbositySet(-1);
    number.Print(7);
    EXPECT_EQ(Script().printed, printed);
  };
  expect({2, 5}, 0x200000005, "(2,5)", "(2,5)");
  expect({-3}, 0 - 3ULL, "-(0,3)", "(-1,4294967293)");
  expect({-1, 5}, 0 - 0x100000005ULL, "-(1,5)", "(-2,4294967291)");
  expect({-1, 0}, 0 - 0x100000000ULL, "-(1,0)", "(-1,0)");
  expect({-INT_MAX, UINT_MAX}, (1ULL << 63) + 1, "-(2147483647,4294967295)", "(-2147483648,1)");
  expect({INT_MIN, 0}, 1ULL << 63, "-(-2147483648,0)", "(-2147483648,0)");
  expect({INT_MIN, 1}, INT64_MAX, "(2147483647,4294967295)", "(2147483647,4294967295)");
  expect({ABOVE_32_BITS + 2, ABOVE_32_BITS + 5}, 0x200000005, "(2,5)", "(2,5)");
  EXPECT_EQ(SequenceNumber(4, 4).ToString(nullptr, 26), nullptr);
}

TEST(SequenceNumber, IsSetFromTheSignOfAWholeLongAndItsLowWord) {
  constexpr int NARROW = sizeof(long) == 4 ? -1 : 0;
  SequenceNumber number(4, 4);
  number.Set(-3);
  EXPECT_EQ(number.IntegerGet(), -3);
  number.Set(ABOVE_32_BITS - 1);
  EXPECT_EQ(number.IntegerGet(), NARROW * (1LL << 32) + 4294967295);
  number.Set(5 - ABOVE_32_BITS);
  EXPECT_EQ(number.IntegerGet(), (-1LL - NARROW) * (1LL << 32) + 5);
}

}  // namespace
