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

// The destructor has the first two entries, but for the queue, where it has the last ones.
TEST(Layout, SlotsHaveTheirOrder) {
  // clang-format off
  const struct { const char* name; std::size_t first; std::vector<std::size_t> slots; } rows[] = {
      {"VORNClockClass", 2, {Slot(&VORNClockClass::TimeGet), Slot(&VORNClockClass::IsValid)}},
      {"VORNEvent", 2, {Slot(&VORNEvent::Fired)}},
      {"VORNEventManager", 2, {Slot(&VORNEventManager::IsValid)}},
      {"VORNDiagNetworkListenerClass", 2, {Slot(&VORNDiagNetworkListenerClass::SendNotify)}},
      {"VORNDGram", 2, {Slot(&VORNDGram::IsValid), Slot(&VORNDGram::SendTo), Slot(&VORNDGram::HasDataWithSleep)}},
      {"ShmMsgQ", 0, {Slot(&ShmMsgQ::SpaceGet), Slot(&ShmMsgQ::Send), Slot(&ShmMsgQ::Recv)}},
      {"ShmMsgQ", 3, {Slot(&ShmMsgQ::IsValid), Slot(&ShmMsgQ::Destroy), Slot(&ShmMsgQ::Print)}},
      {"HTNodeClass", 2, {Slot(&HTNodeClass::Release), Slot(&HTNodeClass::Retain)}},
      {"HTExecFunc", 2, {Slot(&HTExecFunc::LevelEntry), Slot(&HTExecFunc::LevelExit), Slot(&HTExecFunc::Node)}},
      {"HTMatchFunc", 2, {Slot(&HTMatchFunc::Match)}},
      {"HTRemoveFunc", 2, {Slot(&HTRemoveFunc::Remove)}},
  };
  // clang-format on
  for (const auto& row : rows)
    for (std::size_t i = 0; i < row.slots.size(); ++i)
      EXPECT_EQ(row.slots[i], row.first + i) << row.name << " operation " << i;
}
