#include "reliability/SequenceNumber.h"

#include "support/ScriptedLayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

namespace {

// What a long may hold above the 32 bits that are read of it; nothing on a 32-bit host.
constexpr long ABOVE_32_BITS = static_cast<long>(1LL << 32);

std::uint64_t Joined(const SequenceNumber& number) {
  return (std::uint64_t{static_cast<std::uint32_t>(number.high)} << 32) | number.low;
}

SequenceNumber Number(std::uint64_t value) {
  SequenceNumber number;
  number.high = static_cast<std::int32_t>(static_cast<std::uint32_t>(value >> 32));
  number.low = static_cast<std::uint32_t>(value);
  return number;
}

// 2^k, its neighbours and their negatives.
std::vector<std::uint64_t> Edges() {
  std::vector<std::uint64_t> edges{0};
  for (int k = 0; k < 64; ++k)
    for (const std::uint64_t step : {~0ULL, 0ULL, 1ULL})
      edges.insert(edges.end(), {(1ULL << k) + step, 0 - (1ULL << k) - step});
  return edges;
}

TEST(SequenceNumber, ComputesAndOrdersLikeA64BitInteger) {
  const std::vector<std::uint64_t> edges = Edges();
  for (const std::uint64_t a : edges) {
    const SequenceNumber number = Number(a);
    const auto x = static_cast<std::int64_t>(a);
    EXPECT_EQ(Joined(number.Absolute()), x < 0 ? 0 - a : a);
    SequenceNumber counter = number;
    EXPECT_EQ(Joined(counter++), a);
    EXPECT_EQ(Joined(counter), a + 1);
    for (const std::uint64_t b : edges) {
      const SequenceNumber other = Number(b);
      const auto y = static_cast<std::int64_t>(b);
      EXPECT_EQ(Joined(number + other), a + b);
      EXPECT_EQ(Joined(number - other), a - b);
      EXPECT_EQ(number.Distance(other),
                static_cast<int>(std::min<std::uint64_t>(x < y ? b - a : a - b, INT_MAX)));
      EXPECT_TRUE((number < other) == (x < y) && (number <= other) == (x <= y));
      EXPECT_TRUE((number > other) == (x > y) && (number >= other) == (x >= y));
      EXPECT_TRUE((number == other) == (x == y) && (number != other) == (x != y));
      if (y < INT_MIN || y > INT_MAX)
        continue;
      const int n = static_cast<int>(y);
      SequenceNumber sum = number;
      EXPECT_EQ(Joined(sum.Add(n)), a + b);
      EXPECT_TRUE(Joined(sum) == a + b && Joined(number + n) == a + b);
      EXPECT_EQ(Joined(number - n), a - b);
      EXPECT_EQ(Joined(SequenceNumber(n)), b);
    }
  }
}

TEST(SequenceNumber, ReadsPairsAsSignAndMagnitudeAndShowsThem) {
  struct Row {
    long high;
    unsigned long low;
    std::uint64_t stored;
    const char *text, *printed;
  };
  for (const Row& row :
       {Row{0, 17, 17, "(0,17)", "(0,17)"}, Row{2, 5, 0x200000005, "(2,5)", "(2,5)"},
        Row{-1, 5, 0 - 0x100000005ULL, "-(1,5)", "(-2,4294967291)"},
        Row{-1, 0, 0 - 0x100000000ULL, "-(1,0)", "(-1,0)"},
        Row{INT_MAX, UINT_MAX, INT64_MAX, "(2147483647,4294967295)", "(2147483647,4294967295)"},
        Row{-INT_MAX, UINT_MAX, 0x8000000000000001, "-(2147483647,4294967295)", "(-2147483648,1)"},
        Row{INT_MIN, 0, 1ULL << 63, "-(-2147483648,0)", "(-2147483648,0)"},
        Row{INT_MIN, 1, INT64_MAX, "(2147483647,4294967295)", "(2147483647,4294967295)"},
        Row{ABOVE_32_BITS + 2, ABOVE_32_BITS + 5, 0x200000005, "(2,5)", "(2,5)"}}) {
    const SequenceNumber number(row.high, row.low);
    EXPECT_EQ(Joined(number), row.stored) << row.high << ' ' << row.low;
    char text[SequenceNumber::TEXT_SIZE];
    EXPECT_STREQ(number.ToString(text, 0), row.text);
    ScriptReset();
    Script().printed.clear();
    number.Print(7);
    EXPECT_EQ(Script().printed, row.printed);
  }
  char text[SequenceNumber::TEXT_SIZE];
  EXPECT_STREQ(SequenceNumber(-3).ToString(text, 26), "-(0,3)");
  EXPECT_EQ(SequenceNumber().ToString(nullptr, 26), nullptr);
  SequenceNumber number(4, 4);
  number.Set(ABOVE_32_BITS - 3);  // the low 32 bits of a long: -3
  EXPECT_EQ(Joined(number), 0 - 3ULL);
}

}  // namespace
