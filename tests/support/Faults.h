#ifndef SUPPORT_FAULTS_H
#define SUPPORT_FAULTS_H

#include "support/Scripted.h"

#include <utility>

/// Runs `operation` again and again. The first, second, third ... allocation or fallible call of
/// the lower layer fails, until a run has none left to fail and succeeds. Returns which failures
/// made it refuse (return 0); those runs leave no memory, socket or lock behind.
inline std::string FaultsTry(const std::function<int()>& operation) {
  std::string refusals;
  for (int step = 1;; ++step) {
    const auto held = [] {
      return std::vector<int>{BlocksHeld(), Script().openSockets,
                              Script().mutexTakes - Script().mutexGives,
                              Script().threadLocks - Script().threadUnlocks};
    };
    const std::vector<int> before = held();
    System().failingStep = System().steps + step;
    const int result = operation();
    const std::string failed = std::exchange(System().failedStep, "");
    System().failingStep = 0;
    if (failed.empty()) {
      EXPECT_EQ(result, 1) << "with no fault";
      return refusals;
    }
    if (result != 0)
      continue;
    EXPECT_EQ(held(), before) << "step " << step << ": " << failed;
    refusals += (refusals.empty() ? "" : ", ") + failed;
  }
}

#endif
