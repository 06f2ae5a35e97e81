#ifndef SUPPORT_SCRIPTED_H
#define SUPPORT_SCRIPTED_H

#include "support/ScriptedLayer.h"
#include "support/ScriptedSystem.h"

#include <gtest/gtest.h>

/// Fresh scripts before and after each test: `using Suite = Scripted;`.
struct Scripted : testing::Test {
  Scripted() { Reset(); }
  ~Scripted() override { Reset(); }
  static void Reset() {
    ScriptReset();
    SystemReset();
  }
};

#endif
