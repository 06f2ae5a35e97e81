#include "Commands.h"
#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"

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
  const bool canMulticast = VORNDGramClass::NICIsMulticastSupported() != 0;
  if (!canMulticast)
    std::printf("WRONG: no interface can multicast: nothing can be sent to or received from "
                "groups\n");
  VORNDGramClass::NICDestroy();
  return canMulticast ? EXIT_FINE : EXIT_TROUBLE;
}
