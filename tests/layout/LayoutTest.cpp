#include "hosts/VORNDeclRecipient.h"
#include "hosts/VORNEnvironment.h"
#include "hosts/VORNHostListProperties.h"
#include "hosts/VORNHostMask.h"
#include "ipc/QueueKeys.h"
#include "ipc/ShmMsgQManager.h"
#include "net/VORNDGramMulticast.h"
#include "net/miscIPUtils.h"
#include "platform/DequeVoid.h"
#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNClock.h"
#include "time/VORNEventManager.h"
#include "utils/VORNUtilsDiag.h"

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

template <typename Class, typename T> std::string Text(T Class::*field) {
  std::size_t offset;
  std::memcpy(&offset, &field, sizeof field);
  return std::to_string(offset) + "+" + std::to_string(sizeof(T));
}

template <typename Number> std::string Text(Number value) { return std::to_string(value); }

std::string Text(const char* text) { return std::regex_replace(text, std::regex("\n"), "\\n"); }

template <typename T> std::string Text(T* pointer) {
  return pointer == nullptr ? "null" : "not null";
}

struct Row {
  const char* what;
  std::string found;
  const char *on64Bits, *on32Bits;
};

// Made while the program is loaded, when nothing has set a global yet.
const std::vector<Row> ROWS = {
#include "layout_rows.inc"
};

// A pointer to a virtual operation holds where its entry lies in the table, and one more.
template <typename Operation> std::size_t Slot(Operation operation) {
  std::size_t place;
  std::memcpy(&place, &operation, sizeof place);
  return place / sizeof(void*);
}

}  // namespace

TEST(Layout, IsWhatProgramsAreCompiledAgainst) {
  for (const Row& row : ROWS)
    EXPECT_EQ(row.found, sizeof(void*) == 8 ? row.on64Bits : row.on32Bits) << row.what;
}

// Two entries are the destructor's: the first ones, but for the queue, where they are the last.
TEST(Layout, SlotsHaveTheirOrder) {
  // clang-format off
  const struct { const char* operation; std::size_t found, expected; } rows[] = {
      {"VORNClockClass::TimeGet", Slot(&VORNClockClass::TimeGet), 2},
      {"VORNClockClass::IsValid", Slot(&VORNClockClass::IsValid), 3},
      {"VORNEvent::Fired", Slot(&VORNEvent::Fired), 2},
      {"VORNEventManager::IsValid", Slot(&VORNEventManager::IsValid), 2},
      {"VORNDiagNetworkListenerClass::SendNotify", Slot(&VORNDiagNetworkListenerClass::SendNotify), 2},
      {"VORNDGram::IsValid", Slot(&VORNDGram::IsValid), 2},
      {"VORNDGram::SendTo", Slot(&VORNDGram::SendTo), 3},
      {"VORNDGram::HasDataWithSleep", Slot(&VORNDGram::HasDataWithSleep), 4},
      {"ShmMsgQ::SpaceGet", Slot(&ShmMsgQ::SpaceGet), 0},
      {"ShmMsgQ::Send", Slot(&ShmMsgQ::Send), 1},
      {"ShmMsgQ::Recv", Slot(&ShmMsgQ::Recv), 2},
      {"ShmMsgQ::IsValid", Slot(&ShmMsgQ::IsValid), 3},
      {"ShmMsgQ::Destroy", Slot(&ShmMsgQ::Destroy), 4},
      {"ShmMsgQ::Print", Slot(&ShmMsgQ::Print), 5},
      {"HTNodeClass::Release", Slot(&HTNodeClass::Release), 2},
      {"HTNodeClass::Retain", Slot(&HTNodeClass::Retain), 3},
      {"HTExecFunc::LevelEntry", Slot(&HTExecFunc::LevelEntry), 2},
      {"HTExecFunc::LevelExit", Slot(&HTExecFunc::LevelExit), 3},
      {"HTExecFunc::Node", Slot(&HTExecFunc::Node), 4},
      {"HTMatchFunc::Match", Slot(&HTMatchFunc::Match), 2},
      {"HTRemoveFunc::Remove", Slot(&HTRemoveFunc::Remove), 2},
  };
  // clang-format on
  for (const auto& row : rows)
    EXPECT_EQ(row.found, row.expected) << row.operation;
}
