#include "net/VORNNICProperties.h"

#include "net/miscIPUtils.h"
#include "platform/KelDGram.h"
#include "utils/internal/Diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

namespace {

struct FlagName {
  std::uint32_t flag;
  int systemFlag;
};

constexpr FlagName FLAG_NAMES[] = {
    {NIC_LOOPBACK, IFF_LOOPBACK},
    {NIC_BROADCAST, IFF_BROADCAST},
    {NIC_MULTICAST, IFF_MULTICAST},
    {NIC_UP, IFF_UP},
};

std::uint32_t FlagsFromSystem(short systemFlags) {
  std::uint32_t flags = 0;
  for (const FlagName& name : FLAG_NAMES)
    if ((systemFlags & name.systemFlag) != 0)
      flags |= name.flag;
  return flags;
}

// Adds one record of the system's list to the table. Returns whether it was added.
bool InterfaceAdd(int descriptor, const ifreq& record, VORNNICProperties* table, int* count) {
  if (record.ifr_addr.sa_family != AF_INET)
    return false;
  // The reply overwrites the address, which is therefore read from the list's own record.
  ifreq reply = record;
  if (ioctl(descriptor, SIOCGIFFLAGS, &reply) < 0)
    return false;
  sockaddr_in systemAddress;
  std::memcpy(&systemAddress, &record.ifr_addr, sizeof systemAddress);
  const std::uint32_t address = ntohl(systemAddress.sin_addr.s_addr);
  if (*count >= VORN_NIC_CAPACITY) {
    char dotted[VORN_ADDRESS_TEXT_SIZE];
    DiagnosticPrint(Diagnostic::FAILURE, "%s Ignoring interface: %s (only %d are supported)\n",
                    WarnPreUtilsInit, VornAddressToStringPrintable(address, dotted),
                    VORN_NIC_CAPACITY);
    return false;
  }
  VORNNICProperties& nic = table[*count];
  // Address 0 is stored too, though it is refused: a reader who looks one record past the count
  // finds no address there, whatever the caller's table held before. The next record reuses it.
  nic.address = address;
  if (address == 0)
    return false;
  nic.flags = FlagsFromSystem(reply.ifr_flags);
  if (DiagnosticIsOn(Diagnostic::NOTE))
    NicPropertiesPrint(WarnPreUtilsInit, 0, &nic);
  *count += 1;
  return true;
}

// Adds the system's whole list. Returns whether it held any interface.
bool InterfaceListAdd(int descriptor, VORNNICProperties* table, int* count) {
  ifreq records[VORN_NIC_CAPACITY] = {};
  ifconf request{};
  request.ifc_len = sizeof records;
  request.ifc_req = records;
  const int result = ioctl(descriptor, SIOCGIFCONF, &request);
  if (result < 0) {
    DiagnosticPrint(Diagnostic::FAILURE,
                    "%s failed to get interfaces: ioctl returned %d, errno=%d\n", WarnPreUtilsInit,
                    result, errno);
    return false;
  }
  DiagnosticPrint(Diagnostic::NOTE, "%s Acquired network interfaces:\n", WarnPreUtilsInit);
  const int listed =
      std::clamp(request.ifc_len / static_cast<int>(sizeof(ifreq)), 0, VORN_NIC_CAPACITY);
  bool found = false;
  for (int i = 0; i < listed; ++i)
    if (InterfaceAdd(descriptor, records[i], table, count))
      found = true;
  return found;
}

}  // namespace

int NicDefaultGet(VORNNICProperties* table, int* count) {
  if (table == nullptr || count == nullptr)
    return 0;
  char name[VORN_HOST_NAME_SIZE] = {};
  const bool named = VornHostNameGet(name, sizeof name) != nullptr;
  table[0] = {NIC_UP | NIC_MULTICAST | NIC_BROADCAST, named ? VornStringToAddress(name) : 0};
  table[1] = {NIC_UP | NIC_MULTICAST | NIC_LOOPBACK | NIC_BROADCAST, VORN_LOOPBACK_ADDRESS};
  *count = 2;
  return 1;
}

void NicPropertiesPrint(const char* prefix, int /*level*/, VORNNICProperties* nic) {
  if (nic == nullptr)
    return;
  char dotted[VORN_ADDRESS_TEXT_SIZE];
  KelDebugPrint("%s Interface: %s ", prefix != nullptr ? prefix : "",
                VornAddressToStringPrintable(nic->address, dotted));
  KelDebugPrint("(");
  if ((nic->flags & NIC_LOOPBACK) != 0) {
    KelDebugPrint("LOOPBACK");
    KelDebugPrint(",");
  }
  if ((nic->flags & NIC_MULTICAST) != 0) {
    KelDebugPrint("MULTICAST");
    KelDebugPrint(",");
  }
  if ((nic->flags & NIC_BROADCAST) != 0) {
    KelDebugPrint("BROADCAST");
    KelDebugPrint(",");
  }
  if ((nic->flags & NIC_UP) != 0)
    KelDebugPrint("UP");
  KelDebugPrint(")\n");
}

int NicInterfaceUNIXVxWorksGet(VORNNICProperties* table, int* count) {
  if (table == nullptr || count == nullptr)
    return 0;
  *count = 0;
  KelNetioInit();
  KELDGram* dgram = KelDGramNew();
  if (dgram == nullptr) {
    DiagnosticPrint(Diagnostic::FAILURE, WarnFrmUtilsNULLAlloc, WarnPreUtilsInit, "dgram");
    return NicDefaultGet(table, count);
  }
  int found = InterfaceListAdd(dgram->socketGet(dgram), table, count) ? 1 : 0;
  if (found == 0) {
    DiagnosticPrint(Diagnostic::FAILURE,
                    "%s Unable to acquire interface information.\n%s Default interface assumed.\n",
                    WarnPreUtilsInit, WarnPreUtilsInit);
    found = NicDefaultGet(table, count);
  }
  KelDGramDelete(dgram);
  return found;
}

int NicInterfaceGet(VORNNICProperties* table, int* count) {
  if (count == nullptr || table == nullptr) {
    DiagnosticPrint(Diagnostic::FAILURE, WarnFrmUtilsNULLParam, WarnPreUtilsInit,
                    count == nullptr ? "argc of NicInterfaceGet" : "argv of NicInterfaceGet");
    return 0;
  }
  return NicInterfaceUNIXVxWorksGet(table, count);
}
