#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "vorndiag/Commands.h"
#include "vorndiag/Json.h"

#include <cstdio>

namespace {

struct NicLook {
  bool isThere = false;  ///< the table could be made
  std::vector<VORNNICProperties> interfaces;
  std::string trouble;  ///< what is wrong with the table; empty for nothing
};

// The table that the library falls back on. No host has it: its loopback interface can broadcast.
// Its first address is not compared, since a name can resolve to another one each time.
bool TableIsDefault() {
  VORNNICProperties standIn[2] = {};
  int count = 0;
  if (VORN_NIC_COUNT != 2 || NicDefaultGet(standIn, &count) == 0)
    return false;
  return VORN_NIC[0].flags == standIn[0].flags && VORN_NIC[1].flags == standIn[1].flags &&
         VORN_NIC[1].address == standIn[1].address;
}

std::string TroubleGet() {
  if (TableIsDefault())
    return "this is not what the host has: no interface with an address could be read, and the "
           "default stands in for the table";
  if (VORNDGramClass::NICIsMulticastSupported() == 0)
    return "no interface can multicast: nothing can be sent to or received from groups";
  return "";
}

NicLook NicLookGet() {
  NicLook look;
  look.isThere = VORNDGramClass::NICInitialize() != 0;
  if (!look.isThere) {
    look.trouble = "no memory";
    return look;
  }
  look.interfaces.assign(VORN_NIC, VORN_NIC + VORN_NIC_COUNT);
  look.trouble = TroubleGet();
  VORNDGramClass::NICDestroy();
  return look;
}

std::string NoteGet(const NicLook& look) {
  if (look.interfaces.size() < static_cast<std::size_t>(VORN_NIC_CAPACITY))
    return "";
  return std::to_string(look.interfaces.size()) +
         " interfaces: if there are more, the library does not see them";
}

void InterfacePrint(const VORNNICProperties& nic) {
  char address[VORN_ADDRESS_TEXT_SIZE];
  std::printf("%-15s %-4s %-9s %-8s %-9s  %s\n", VornAddressToStringPrintable(nic.address, address),
              (nic.flags & NIC_UP) != 0 ? "up" : "down",
              (nic.flags & NIC_BROADCAST) != 0 ? "broadcast" : "-",
              (nic.flags & NIC_LOOPBACK) != 0 ? "loopback" : "-",
              (nic.flags & NIC_MULTICAST) != 0 ? "multicast" : "-",
              VornNicIsMulticastCapable(nic) ? "groups are joined and sent to here"
                                             : "not used for multicast");
}

void LookPrint(const NicLook& look) {
  for (const VORNNICProperties& nic : look.interfaces)
    InterfacePrint(nic);
  if (const std::string note = NoteGet(look); !note.empty())
    std::printf("%s\n", note.c_str());
  if (!look.trouble.empty())
    std::printf("%s%s\n", look.isThere ? "WRONG: " : "", look.trouble.c_str());
}

void LookWrite(const NicLook& look) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "nic");
  json.ArrayBegin("interfaces");
  for (const VORNNICProperties& nic : look.interfaces) {
    char address[VORN_ADDRESS_TEXT_SIZE];
    json.ObjectBegin();
    json.Text("address", VornAddressToStringPrintable(nic.address, address));
    json.Flag("up", (nic.flags & NIC_UP) != 0);
    json.Flag("broadcast", (nic.flags & NIC_BROADCAST) != 0);
    json.Flag("loopback", (nic.flags & NIC_LOOPBACK) != 0);
    json.Flag("multicast", (nic.flags & NIC_MULTICAST) != 0);
    json.Flag("used_for_groups", VornNicIsMulticastCapable(nic));
    json.End();
  }
  json.End();
  json.Text("note", NoteGet(look));
  json.Text("wrong", look.trouble);
  json.End();
  json.Print();
}

}  // namespace

ExitCode NicCommand(Format format) {
  const NicLook look = NicLookGet();
  format == Format::JSON ? LookWrite(look) : LookPrint(look);
  return look.trouble.empty() ? EXIT_FINE : EXIT_TROUBLE;
}
