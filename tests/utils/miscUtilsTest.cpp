#include "utils/miscUtils.h"
#include "support/Faults.h"
#include "support/Messages.h"
#include "utils/VORNRandomGenerator.h"
#include "utils/VORNThread.h"

#include <climits>

namespace {

using Utils = Scripted;

TEST_F(Utils, TextsAndSizes) {
  char buffer[10];
  EXPECT_STREQ(VornVersionNumberToString(0x030100FF, buffer), "3.1a");
  EXPECT_STREQ(VornVersionNumberToString(0x04000200, buffer), "4.0c");
  EXPECT_STREQ(VornVersionNumberToString(INT_MIN | 0x00FF0900, buffer), "-128.255j");
  EXPECT_STREQ(FastModeToString(-1), "fast mode");
  EXPECT_STREQ(FastModeToString(0), "slow mode");
  EXPECT_STREQ(SafeString(nullptr), "(NULL)");
  EXPECT_EQ(VornVersionNumberToString(1, nullptr), nullptr);
  char* copy = StrDup("");
  EXPECT_STREQ(SafeString(copy), "");
  EXPECT_EQ(StrFree(copy), 1);
  EXPECT_EQ(StrFree(nullptr), 0);
  EXPECT_EQ(StrDup(nullptr), nullptr);
  EXPECT_EQ(FaultsTry([] { return StrFree(StrDup("text")); }), "memory");
  EXPECT_EQ(VornTypeMaxSizeGet(-1, 9), 9);
  EXPECT_EQ(VornTypeMaxSizeGet(9, 9), 9);
  EXPECT_EQ(VornTypeMaxSizeGet(10, 9), -1);
  EXPECT_EQ(VornTypeMaxSizeGet(50, -1), -1);
  EXPECT_EQ(VornTypeMaxSizeGet(-5, 9), -5);
  VornUtilsVerbositySet(1000);
  EXPECT_EQ(VORNUtilsVerbosity, 1000);
}

TEST_F(Utils, RandomNumbersReachBothBoundsAndRepeatWithTheirSeed) {
  std::set<int> drawn;
  for (int i = 0; i < 500; ++i)
    drawn.insert(VornRandomNumberGenerate(-2, 3));
  EXPECT_EQ(drawn, (std::set<int>{-2, -1, 0, 1, 2, 3}));
  EXPECT_NE(VornRandomNumberGenerate(1, INT_MAX), 1) << "the widest range";
  EXPECT_EQ(VornRandomNumberGenerate(5, 5), 5);
  EXPECT_EQ(VornRandomNumberGenerate(6, 5), 6);
  EXPECT_EQ(VornRandomNumberGenerate(0, INT_MAX), 0);
  EXPECT_EQ(VornRandomNumberGenerate(INT_MIN, INT_MAX), INT_MIN);
  EXPECT_EQ(VornRandomNumberGenerate(INT_MAX, INT_MIN), INT_MAX);
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
  const auto expect = [](const std::set<int>& refused, const std::string& text) {
    const std::string said = "VORNThread: Unsupported priority ";
    MessagesExpect({{0, refused.empty() ? "" : said + text}}, [&] {
      Script().refusedPriorities = refused;
      EXPECT_EQ(VORNThreadInfo().PriorityIsValid(), refused.empty() ? 1 : 0) << text;
      EXPECT_EQ(CallsDrain(), "priority 72 3; priority 71 3; priority 70 3; priority 68 3; "
                              "priority 67 3; priority 41 3; priority 40 3");
    });
  };
  expect({}, "none");
  expect({72}, "PFIRST");
  expect({71}, "PSECOND");
  expect({70}, "PTHIRD");
  expect({68}, "PFOURTH");
  expect({67}, "PFIFTH");
  expect({41}, "PSIXTH");
  expect({40}, "PSEVENTH");
  expect({72, 40}, "PFIRSTVORNThread: Unsupported priority PSEVENTH");
}

}  // namespace
