#ifndef SUPPORT_MESSAGES_H
#define SUPPORT_MESSAGES_H

#include "support/Scripted.h"
#include "utils/VORNUtilsDiag.h"

/// A text and the lowest verbosity at which it is printed.
struct Message {
  int level;
  std::string text;
};

/// Runs `situation`, each time with fresh scripts, at every verbosity from -1 to 3 and holds what
/// it prints to the letter against those of `messages` that belong to the level.
inline void MessagesExpect(const std::vector<Message>& messages,
                           const std::function<void()>& situation) {
  for (int level = -1; level <= 3; ++level) {
    Scripted::Reset();
    VornUtilsVerbositySet(level);
    situation();
    std::string expected;
    for (const Message& message : messages)
      expected += level >= message.level ? message.text : "";
    EXPECT_EQ(Script().printed, expected) << "at verbosity " << level;
    EXPECT_EQ(BlocksHeld(), 0) << "at verbosity " << level;
    EXPECT_EQ(Script().openSockets, 0) << "at verbosity " << level;
  }
  Scripted::Reset();
}

#endif
