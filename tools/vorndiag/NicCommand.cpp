#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "vorndiag/Commands.h"

#include <cstdio>

namespace {

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

// Returns whether something is wrong with the table.
bool TroublePrint() {
  if (TableIsDefault()) {
    std::printf("WRONG: this is not what the host has: no interface with an address could be read, "
                "and the default stands in for the table\n");
    return true;
  }
  if (VORNDGramClass::NICIsMulticastSupported() != 0)
    return false;
  std::printf(
      "WRONG: no interface can multicast: nothing can be sent to or received from groups\n");
  return true;
}

}  // namespace

ExitCode NicCommand() {
  if (VORNDGramClass::NICInitialize() == 0) {
    std::printf("no memory\n");
    return EXIT_TROUBLE;
  }
  for (int i = 0; i < VORN_NIC_COUNT; ++i)
    InterfacePrint(VORN_NIC[i]);
  if (VORN_NIC_COUNT == VORN_NIC_CAPACITY)
    std::printf("%d interfaces: if there are more, the library does not see them\n",
                VORN_NIC_COUNT);
  const bool isTrouble = TroublePrint();
  VORNDGramClass::NICDestroy();
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
