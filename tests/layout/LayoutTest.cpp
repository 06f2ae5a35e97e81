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
#include <new>
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

std::string called;

int Note(const char* operation) {
  called = operation;
  return 1;
}

/// Notes which of its operations is called, through whichever base.
struct Probe : VORNClock,
               VORNEvent,
               VORNEventManager,
               VORNDiagNetworkListenerClass,
               VORNDGram,
               ShmMsgQ,
               HTNodeClass,
               HTExecFunc,
               HTMatchFunc,
               HTRemoveFunc {
  Probe()
      : VORNEvent({}, {}, 0, EVENT_DISABLED), VORNEventManager(0, 0, 0),
        VORNDGram(0, 0, nullptr, -1), ShmMsgQ(1, 0), HTNodeClass(nullptr) {}
  ~Probe() override { Note("destructor"); }
  static void operator delete(void* /*room*/) { called = "deleting " + called; }
  void TimeGet(KELNtpTime*) override { Note("TimeGet"); }
  int IsValid() const override { return Note("IsValid const"); }
  int Fired(const VORNNtpTime&) override { return Note("Fired"); }
  void SendNotify(VORNCDRStream*) override { Note("SendNotify"); }
  int SendTo(KELNetioAddr*, VORNCDRStream*) override { return Note("SendTo"); }
  int HasDataWithSleep(KELNtpTime*) override { return Note("HasDataWithSleep"); }
  int SpaceGet() const override { return Note("SpaceGet"); }
  int Send(const char*, int) override { return Note("Send"); }
  int Recv(char*, int) override { return Note("Recv"); }
  int IsValid() override { return Note("IsValid"); }
  void Destroy() override { Note("Destroy"); }
  void Print() override { Note("Print"); }
  void Release(int) override { Note("Release"); }
  void Retain(int) override { Note("Retain"); }
  int LevelEntry(const HTKeyClass*, HTClass*, int) override { return Note("LevelEntry"); }
  int LevelExit(const HTKeyClass*, HTClass*, int) override { return Note("LevelExit"); }
  int Node(const HTKeyClass*, HTNodeClass*, int) override { return Note("Node"); }
  int Match(const HTKeyClass*, HTNodeClass*) override { return Note("Match"); }
  void Remove(const HTKeyClass*, void*) override { Note("Remove"); }
};

// Calls an entry of the base's table, without arguments: the probe looks at none.
template <typename Base>
__attribute__((no_sanitize("undefined"))) std::string SlotCall(std::size_t slot) {
  alignas(Probe) static char room[sizeof(Probe)];
  auto* const probe = new (room) Probe;
  Base* const base = probe;
  void (**table)(void*);
  std::memcpy(&table, static_cast<void*>(base), sizeof table);
  table[slot](base);
  std::string operation = called;
  if (operation.find("destructor") == std::string::npos)
    probe->~Probe();
  return operation;
}

}  // namespace

TEST(Layout, IsWhatProgramsAreCompiledAgainst) {
  for (const Row& row : ROWS)
    EXPECT_EQ(row.found, sizeof(void*) == 8 ? row.on64Bits : row.on32Bits) << row.what;
}

TEST(Layout, SlotsHaveTheirOrder) {
  const char *const END = "destructor", *const DELETE = "deleting destructor";
  // clang-format off
  const struct { const char* name; std::string (*call)(std::size_t slot); std::vector<const char*> operations; } rows[] = {
      {"VORNClockClass", SlotCall<VORNClockClass>, {END, DELETE, "TimeGet", "IsValid const"}},
      {"VORNEvent", SlotCall<VORNEvent>, {END, DELETE, "Fired"}},
      {"VORNEventManager", SlotCall<VORNEventManager>, {END, DELETE, "IsValid const"}},
      {"VORNDiagNetworkListenerClass", SlotCall<VORNDiagNetworkListenerClass>, {END, DELETE, "SendNotify"}},
      {"VORNDGram", SlotCall<VORNDGram>, {END, DELETE, "IsValid const", "SendTo", "HasDataWithSleep"}},
      {"ShmMsgQ", SlotCall<ShmMsgQ>, {"SpaceGet", "Send", "Recv", "IsValid", "Destroy", "Print", END, DELETE}},
      {"HTNodeClass", SlotCall<HTNodeClass>, {END, DELETE, "Release", "Retain"}},
      {"HTExecFunc", SlotCall<HTExecFunc>, {END, DELETE, "LevelEntry", "LevelExit", "Node"}},
      {"HTMatchFunc", SlotCall<HTMatchFunc>, {END, DELETE, "Match"}},
      {"HTRemoveFunc", SlotCall<HTRemoveFunc>, {END, DELETE, "Remove"}},
  };
  // clang-format on
  for (const auto& row : rows)
    for (std::size_t slot = 0; slot < row.operations.size(); ++slot)
      EXPECT_EQ(row.call(slot), row.operations[slot]) << row.name << " slot " << slot;
}
