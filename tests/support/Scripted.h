#ifndef SUPPORT_SCRIPTED_H
#define SUPPORT_SCRIPTED_H

#include "support/ScriptedLayer.h"
#include "support/ScriptedSystem.h"

#include <gtest/gtest.h>

/// Fresh scripts before and after each test: `using Suite = Scripted;`. A test ends with all memory
/// of the library given back and all its sockets closed.
struct Scripted : testing::Test {
  Scripted() { Reset(); }
  ~Scripted() override {
    EXPECT_EQ(BlocksHeld(), 0);
    EXPECT_EQ(Script().openSockets, 0);
    Reset();
  }
  static void Reset() {
    ScriptReset();
    SystemReset();
  }
};

#endif
