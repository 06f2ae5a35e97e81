#include "utils/miscUtils.h"
#include "support/Messages.h"
#include "utils/VORNRandomGenerator.h"
#include "utils/VORNThread.h"

#include <climits>
#include <cstdint>
#include <set>
#include <utility>

namespace {

using Utils = Scripted;

TEST_F(Utils, TextsAndSizes) {
  const std::pair<std::uint32_t, const char*> versions[] = {
      {0x030100FF, "3.1a"}, {0x04000200, "4.0c"}, {0xFF000000, "-1.0a"}, {0x80FF0900, "-128.255j"}};
  for (const auto& [version, text] : versions) {
    char buffer[10];
    EXPECT_STREQ(VornVersionNumberToString(static_cast<int>(version), buffer), text);
  }
  EXPECT_EQ(std::string(FastModeToString(-1)) + FastModeToString(0), "fast modeslow mode");
  EXPECT_EQ(std::string(SafeString("text")) + SafeString(nullptr), "text(NULL)");
  char* copy = StrDup("");
  EXPECT_STREQ(copy, "");
  EXPECT_EQ(StrFree(copy) - StrFree(nullptr), 1);
  System().failingAllocation = System().allocations + 1;
  EXPECT_TRUE(StrDup("text") == nullptr && StrDup(nullptr) == nullptr);
  const int sizes[][3] = {{-1, 100, 100}, {50, 100, 50}, {101, 100, -1}, {50, -1, -1}, {-5, 9, -5}};
  for (const auto& [requested, limit, size] : sizes)
    EXPECT_EQ(VornTypeMaxSizeGet(requested, limit), size) << requested;
  for (const int level : {1000, INT_MIN})
    EXPECT_EQ((VornUtilsVerbositySet(level), VORNUtilsVerbosity), level);
}

TEST_F(Utils, RandomNumbersReachBothBoundsAndNoFurther) {
  std::set<int> drawn;
  for (int i = 0; i < 500; ++i) {
    drawn.insert(VornRandomNumberGenerate(-2, 3));
    EXPECT_LE(VornRandomNumberGenerate(INT_MIN, -2), -2);
  }
  EXPECT_EQ(drawn, (std::set<int>{-2, -1, 0, 1, 2, 3}));
  const int fixed[][2] = {{5, 5}, {6, 1}, {INT_MIN, INT_MAX}, {0, INT_MAX}, {INT_MAX, INT_MIN}};
  for (const auto& [low, high] : fixed)
    EXPECT_EQ(VornRandomNumberGenerate(low, high), low);
}

TEST_F(Utils, EveryPriorityIsAskedForAndEachRefusalPrinted) {
  const char* lines = "VORNThread: Unsupported priority PFIRSTVORNThread: Unsupported priority "
                      "PSEVENTH";
  MessagesExpect({{0, lines}}, [] {
    EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), 1);
    EXPECT_EQ(CallsTake(), "priority 72 3; priority 71 3; priority 70 3; priority 68 3; "
                           "priority 67 3; priority 41 3; priority 40 3");
    Script().refusedPriorities = {72, 40};
    EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), 0);
    EXPECT_EQ(Script().CallsCount("priority"), 7);
  });
}

}  // namespace
