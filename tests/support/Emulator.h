#ifndef SUPPORT_EMULATOR_H
#define SUPPORT_EMULATOR_H

#include <gtest/gtest.h>

#ifndef VORN_TEST_EMULATOR
#define VORN_TEST_EMULATOR ""
#endif

/// For i386: a thread that has handled a signal goes on with the local storage of another thread.
#define THREAD_SIGNALS "signals to one of several threads"

/// Skips the test, with the reason, where its programs run under an emulator. `what` names what the
/// test needs of the kernel and the emulator does not pass on. At the start of a test's body.
#define SKIP_UNDER_EMULATOR(what)                                                                  \
  if (VORN_TEST_EMULATOR[0] != '\0')                                                               \
  GTEST_SKIP() << "the emulator (" VORN_TEST_EMULATOR ") does not do " what

#endif
