#include "utils/miscUtils.h"
#include "support/Messages.h"
#include "utils/VORNRandomGenerator.h"
#include "utils/VORNThread.h"

#include <climits>

namespace {

using Utils = Scripted;

TEST_F(Utils, TextsAndSizes) {
  char buffer[10];
  const std::pair<unsigned int, const char*> versions[] = {
      {0x030100FF, "3.1a"}, {0x04000200, "4.0c"}, {0xFF000000, "-1.0a"}, {0x80FF0900, "-128.255j"}};
  for (const auto& [version, text] : versions)
    EXPECT_STREQ(VornVersionNumberToString(static_cast<int>(version), buffer), text);
  EXPECT_STREQ(FastModeToString(-1), "fast mode");
  EXPECT_STREQ(FastModeToString(0), "slow mode");
  EXPECT_STREQ(SafeString(nullptr), "(NULL)");
  EXPECT_EQ(VornVersionNumberToString(1, nullptr), nullptr);
  char* copy = StrDup("");
  EXPECT_STREQ(SafeString(copy), "");
  EXPECT_EQ(StrFree(copy), 1);
  EXPECT_EQ(StrFree(nullptr), 0);
  EXPECT_EQ(StrDup(nullptr), nullptr);
  System().failingAllocation = System().allocations + 1;
  EXPECT_EQ(StrDup("text"), nullptr);
  const int sizes[][3] = {{-1, 9, 9}, {9, 9, 9}, {10, 9, -1}, {50, -1, -1}, {-5, 9, -5}};
  for (const auto& [requested, limit, size] : sizes)
    EXPECT_EQ(VornTypeMaxSizeGet(requested, limit), size) << requested;
  VornUtilsVerbositySet(1000);
  EXPECT_EQ(VORNUtilsVerbosity, 1000);
}

TEST_F(Utils, RandomNumbersReachBothBoundsAndNoFurther) {
  std::set<int> drawn;
  for (int i = 0; i < 500; ++i)
    drawn.insert(VornRandomNumberGenerate(-2, 3));
  EXPECT_EQ(drawn, (std::set<int>{-2, -1, 0, 1, 2, 3}));
  EXPECT_NE(VornRandomNumberGenerate(1, INT_MAX), 1) << "the widest range";
  const int fixed[][2] = {
      {5, 5}, {6, 5}, {6, 1}, {INT_MIN, INT_MAX}, {0, INT_MAX}, {INT_MAX, INT_MIN}};
  for (const auto& [low, high] : fixed)
    EXPECT_EQ(VornRandomNumberGenerate(low, high), low);
}

TEST_F(Utils, RandomNumbersRepeatWithTheirSeed) {
  const auto second = [](unsigned int seed, int highestFirst) {
    VornRandomNumberSeed(seed);
    VornRandomNumberGenerate(0, highestFirst);
    return VornRandomNumberGenerate(0, 1000000);
  };
  const int number = second(7, 1000);
  EXPECT_EQ(second(7, 1000), number);
  EXPECT_NE(second(6, 1000), number);
  EXPECT_EQ(second(7, 0), number) << "the one number of a range was drawn";
}

TEST_F(Utils, EveryPriorityIsAskedForAndEachRefusalPrinted) {
  // clang-format off
  const struct { std::set<int> refused; int isValid; const char* text; } rows[] = {
      {{}, 1, ""}, {{72}, 0, "PFIRST"}, {{71}, 0, "PSECOND"}, {{70}, 0, "PTHIRD"}, {{68}, 0, "PFOURTH"}, {{67}, 0, "PFIFTH"},
      {{41}, 0, "PSIXTH"}, {{40}, 0, "PSEVENTH"}, {{72, 40}, 0, "PFIRSTVORNThread: Unsupported priority PSEVENTH"}};
  // clang-format on
  for (const auto& row : rows)
    MessagesExpect({{0, (row.isValid != 0 ? "" : "VORNThread: Unsupported priority ") +
                            std::string(row.text)}},
                   [&row] {
                     Script().refusedPriorities = row.refused;
                     EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), row.isValid);
                     EXPECT_EQ(CallsDrain(),
                               "priority 72 3; priority 71 3; priority 70 3; priority 68 3; "
                               "priority 67 3; priority 41 3; priority 40 3");
                   });
}

}  // namespace
