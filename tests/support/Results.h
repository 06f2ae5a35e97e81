#ifndef SUPPORT_RESULTS_H
#define SUPPORT_RESULTS_H

#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <utility>

/// What a long may hold above the 32 bits that are read of it; nothing on a 32-bit host.
constexpr long ABOVE_32_BITS = static_cast<long>(1LL << 32);

/// Holds the result of each call, made in this order, against `expected`.
inline void ResultsExpect(int expected, std::initializer_list<std::pair<const char*, int>> calls) {
  for (const auto& [name, result] : calls)
    EXPECT_EQ(result, expected) << name;
}

/// The answers of the six comparisons.
template <typename T> std::array<bool, 6> Order(const T& a, const T& b) {
  return {(a < b), (a > b), a <= b, a >= b, a == b, a != b};
}

#endif
