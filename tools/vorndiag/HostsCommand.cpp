#include "hostlist/HostList.h"
#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "vorndiag/Commands.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* TYPE_NAMES[VORN_ENVIRONMENT_TYPE_COUNT] = {"", "manager", "app", "managee",
                                                                 "peer"};

VORNEnvironmentType TypeGet(const std::string& name) {
  int index = VORN_ENVIRONMENT_TYPE_COUNT - 1;
  while (index > 0 && name != TYPE_NAMES[index])
    --index;
  return static_cast<VORNEnvironmentType>(index);
}

std::string Visible(const std::string& text) {
  std::string visible;
  for (const char byte : text) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(byte));
    visible += std::isprint(static_cast<unsigned char>(byte)) != 0 ? std::string(1, byte) : escaped;
  }
  return visible;
}

// Where the list is from. Returns whether something is wrong with it as a whole.
bool SourcePrint(const HostListText& list) {
  if (list.fault == HostListFault::CANNOT_OPEN)
    std::printf(
        "WRONG: file %s cannot be opened: %s; programs that do not mind use the variable of "
        "that name\n",
        list.name, std::strerror(list.error));
  else if (list.fault == HostListFault::CANNOT_READ)
    std::printf("WRONG: file %s cannot be read\n", list.name);
  else if (list.source == HostListSource::NOWHERE)
    std::printf("no list: no file %s here, and no variable of that name\n", list.name);
  else
    std::printf(list.source == HostListSource::IN_FILE ? "from file %s in this directory\n"
                                                       : "from environment variable %s\n",
                list.name);
  if (list.fault == HostListFault::TOO_LONG)
    std::printf("WRONG: the list fills the room there is for it: its end may be missing\n");
  return list.fault != HostListFault::NONE;
}

const char* FormComplaint(HostEntryForm form) {
  switch (form) {
  case HostEntryForm::SHORT_MASK:
    return "  WRONG: a mask is 8 hexadecimal digits";
  case HostEntryForm::OTHER_BYTE:
    return "  WRONG: holds a byte that is in no host's name";
  case HostEntryForm::OTHER_NUMBER:
    return "  WRONG: is not written like the address that it is read as";
  case HostEntryForm::GOOD:
    break;
  }
  return "";
}

// Returns whether something is wrong with the entry.
bool EntryPrint(const HostEntry& entry) {
  const std::string shown = Visible(entry.text);
  if (!entry.namesHost) {
    std::printf("  %-28s WRONG: no such host\n", shown.c_str());
    return true;
  }
  char dotted[VORN_ADDRESS_TEXT_SIZE];
  std::printf("  %-28s %s %s mask %08x%s\n", shown.c_str(),
              entry.mask == 0xFFFFFFFF ? "host  " : "subnet",
              VornAddressToString(entry.address & entry.mask, dotted), entry.mask,
              FormComplaint(entry.form));
  return entry.form != HostEntryForm::GOOD;
}

bool EntriesPrint(const std::vector<HostEntry>& entries, HostTable* table) {
  bool isTrouble = false;
  bool isEmpty = true;
  for (const HostEntry& entry : entries) {
    isTrouble |= EntryPrint(entry);
    if (entry.namesHost) {
      isEmpty = false;
      table->EntryAdd(entry);  // refuses one that is there already, which changes nothing
    }
  }
  if (isEmpty)
    std::printf("no usable entry: an empty list admits everybody\n");
  return isTrouble;
}

bool AdmissionPrint(HostTable* table, const std::string& host) {
  const unsigned int address = VornStringToAddress(host.c_str());
  const bool isAdmitted = address != 0 && VornHostMaskMatch(table->TableGet(), address, 0) != 0;
  std::printf("%s: %s\n", host.c_str(),
              address == 0 ? "no such host" : (isAdmitted ? "admitted" : "REFUSED"));
  return isAdmitted;
}

// In this process only: the interface table is each process's own.
void InterfacesPrint(HostTable* table) {
  const std::vector<VORNNICProperties> before(VORN_NIC, VORN_NIC + VORN_NIC_COUNT);
  VornSubnetMatch(table->TableGet(), nullptr, 0, nullptr);
  for (std::size_t i = 0; i < before.size(); ++i) {
    char address[VORN_ADDRESS_TEXT_SIZE];
    const char* fate = "stays in use";
    if ((before[i].flags & NIC_UP) == 0)
      fate = "is down";
    else if ((VORN_NIC[i].flags & NIC_UP) == 0)
      fate = "is outside the list's subnets: pruning takes it out of use";
    std::printf("interface %s: %s\n", VornAddressToStringPrintable(before[i].address, address),
                fate);
  }
}

}  // namespace

ExitCode HostsCommand(const std::string& type, const std::vector<std::string>& addresses) {
  const HostListText list = HostListTextGet(TypeGet(type));
  bool isTrouble = SourcePrint(list);
  if (list.source == HostListSource::NOWHERE)
    return EXIT_NOTHING;
  if (list.fault == HostListFault::CANNOT_OPEN || list.fault == HostListFault::CANNOT_READ)
    return EXIT_TROUBLE;
  if (VORNDGramClass::NICInitialize() == 0) {
    std::printf("no memory\n");
    return EXIT_TROUBLE;
  }
  HostTable table;
  isTrouble |= EntriesPrint(HostEntriesGet(list.text), &table);
  // An entry for 127.0.0.1 admits this host's addresses, which the interface table knows.
  for (const std::string& address : addresses)
    isTrouble |= !AdmissionPrint(&table, address);
  InterfacesPrint(&table);
  VORNDGramClass::NICDestroy();
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
