#include "utils/miscUtils.h"
#include "support/Messages.h"
#include "utils/VORNRandomGenerator.h"
#include "utils/VORNThread.h"

#include <climits>
#include <cstdint>

namespace {

using Utils = Scripted;

TEST_F(Utils, TextsAndSizes) {
  const auto version = [](std::uint32_t packed) {
    char text[10];
    return std::string(VornVersionNumberToString(static_cast<int>(packed), text));
  };
  EXPECT_EQ(version(0x030100FF) + version(0x04000200) + version(0xFF000000), "3.1a4.0c-1.0a");
  EXPECT_EQ(version(0x80FF0900), "-128.255j");
  EXPECT_EQ(VornVersionNumberToString(0, nullptr), nullptr);
  EXPECT_EQ(std::string(FastModeToString(-1)) + FastModeToString(0), "fast modeslow mode");
  char* copy = StrDup("");
  EXPECT_STREQ(copy, "");
  EXPECT_EQ(StrFree(copy) - StrFree(nullptr), 1);
  System().failingAllocation = System().allocations + 1;
  EXPECT_TRUE(StrDup("text") == nullptr && StrDup(nullptr) == nullptr);
  EXPECT_EQ(std::string(SafeString("text")) + SafeString(nullptr), "text(NULL)");
  const int sizes[][3] = {{-1, 100, 100}, {50, 100, 50}, {100, 100, 100},
                          {101, 100, -1}, {50, -1, -1},  {-5, 100, -5}};
  for (const auto& [requested, limit, size] : sizes)
    EXPECT_EQ(VornTypeMaxSizeGet(requested, limit), size) << requested;
  for (const int level : {1000, INT_MIN})
    EXPECT_EQ((VornUtilsVerbositySet(level), VORNUtilsVerbosity), level);
}

TEST_F(Utils, RandomNumbersStayInTheirBounds) {
  const int bounds[][2] = {{5, 5}, {1, 6}, {1, INT_MAX}, {INT_MIN, -2}, {-3, 3}};
  for (const auto& [low, high] : bounds) {
    int least = INT_MAX, most = INT_MIN;
    for (int i = 0; i < 500; ++i) {
      const int number = VornRandomNumberGenerate(low, high);
      least = std::min(least, number);
      most = std::max(most, number);
    }
    EXPECT_TRUE(low <= least && most <= high) << low;
    EXPECT_TRUE(high - 6 > low || (least == low && most == high)) << low;
  }
  EXPECT_EQ(VornRandomNumberGenerate(6, 1), 6);
  EXPECT_EQ(VornRandomNumberGenerate(INT_MIN, INT_MAX), INT_MIN);
  EXPECT_EQ(VornRandomNumberGenerate(0, INT_MAX), 0);
}

TEST_F(Utils, EachRefusedPriorityIsPrinted) {
  MessagesExpect({{0, "VORNThread: Unsupported priority PFIRST"
                      "VORNThread: Unsupported priority PSEVENTH"}},
                 [] {
                   EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), 1);
                   Script().refusedPriorities = {72, 40};
                   CallsTake();
                   EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), 0);
                   EXPECT_EQ(CallsTake(), "priority 72 3; priority 71 3; priority 70 3; priority "
                                          "68 3; priority 67 3; priority 41 3; priority 40 3");
                 });
}

}  // namespace
