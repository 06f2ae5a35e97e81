#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "vorndiag/Commands.h"
#include "vorndiag/HostMarks.h"
#include "vorndiag/HostTypes.h"
#include "vorndiag/Json.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

/// Whether the list admits an address.
struct Admission {
  std::string host;  ///< as it was asked for
  bool namesHost = false;
  bool isAdmitted = false;
};

/// What a program that prunes by the list does with an interface.
struct InterfaceFate {
  unsigned int address = 0;
  const char* fate = "";
};

/// All that the command finds out.
struct HostsLook {
  HostListText list;
  std::vector<HostEntry> entries;
  std::vector<HostMark> marks;
  std::vector<Admission> admissions;
  std::vector<InterfaceFate> interfaces;
  std::string failure;  ///< why nothing could be found out
};

std::string Dotted(unsigned int address) {
  char text[VORN_ADDRESS_TEXT_SIZE];
  return VornAddressToStringPrintable(address, text);
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

// What is wrong with the list as a whole; empty for nothing.
std::string FaultText(const HostListText& list) {
  switch (list.fault) {
  case HostListFault::CANNOT_OPEN:
    return std::string("file ") + list.name + " cannot be opened: " + std::strerror(list.error) +
           "; programs that do not mind use the variable of that name";
  case HostListFault::CANNOT_READ:
    return std::string("file ") + list.name + " cannot be read";
  case HostListFault::TOO_LONG:
    return "the list fills the room there is for it: its end may be missing";
  case HostListFault::NONE:
    break;
  }
  return "";
}

bool HasEntries(const HostListText& list) {
  return list.source != HostListSource::NOWHERE && list.fault != HostListFault::CANNOT_OPEN &&
         list.fault != HostListFault::CANNOT_READ;
}

// In this process only: the interface table is each process's own.
std::vector<InterfaceFate> InterfacesPrune(HostTable* table) {
  const std::vector<VORNNICProperties> before(VORN_NIC, VORN_NIC + VORN_NIC_COUNT);
  VornSubnetMatch(table->TableGet(), nullptr, 0, nullptr);
  std::vector<InterfaceFate> fates;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const char* fate = "stays in use";
    if ((before[i].flags & NIC_UP) == 0)
      fate = "is down";
    else if ((VORN_NIC[i].flags & NIC_UP) == 0)
      fate = "is outside the list's subnets: pruning takes it out of use";
    fates.push_back({before[i].address, fate});
  }
  return fates;
}

// An entry for 127.0.0.1 admits this host's addresses, which the interface table knows.
void TableAsk(const std::vector<std::string>& addresses, HostsLook* look) {
  HostTable table;
  for (const HostEntry& entry : look->entries)
    if (entry.namesHost)
      table.EntryAdd(entry);  // refuses one that is there already, which changes nothing
  for (const std::string& host : addresses) {
    const unsigned int address = VornStringToAddress(host.c_str());
    const bool isAdmitted = address != 0 && VornHostMaskMatch(table.TableGet(), address, 0) != 0;
    look->admissions.push_back({host, address != 0, isAdmitted});
  }
  look->interfaces = InterfacesPrune(&table);
}

HostsLook HostsLookGet(const HostsOptions& options) {
  HostsLook look;
  look.list = HostListTextGet(HostListTypeGet(options.type));
  if (!HasEntries(look.list))
    return look;
  if (VORNDGramClass::NICInitialize() == 0) {
    look.failure = "no memory";
    return look;
  }
  look.entries = HostEntriesGet(look.list.text);
  look.marks = HostMarksGet(look.entries);
  TableAsk(options.addresses, &look);
  VORNDGramClass::NICDestroy();
  return look;
}

bool HasUsable(const std::vector<HostEntry>& entries) {
  for (const HostEntry& entry : entries)
    if (entry.namesHost)
      return true;
  return false;
}

ExitCode CodeGet(const HostsLook& look) {
  bool isTrouble = look.list.fault != HostListFault::NONE || !look.failure.empty();
  for (const HostMark& mark : look.marks)
    isTrouble |= mark.isTrouble;
  for (const Admission& admission : look.admissions)
    isTrouble |= !admission.isAdmitted;
  if (look.list.source == HostListSource::NOWHERE)
    return EXIT_NOTHING;
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}

void SourcePrint(const HostListText& list) {
  if (list.source == HostListSource::NOWHERE)
    std::printf("no list: no file %s here, and no variable of that name\n", list.name);
  else if (HasEntries(list))
    std::printf(list.source == HostListSource::IN_FILE ? "from file %s in this directory\n"
                                                       : "from environment variable %s\n",
                list.name);
  if (list.fault != HostListFault::NONE)
    std::printf("WRONG: %s\n", FaultText(list).c_str());
}

std::string MarksText(const HostsLook& look, std::size_t entry) {
  std::string text;
  for (const HostMark& mark : look.marks)
    if (mark.entry == entry)
      text += (mark.isTrouble ? "  WRONG: " : "  note: ") + mark.text;
  return text;
}

void EntriesPrint(const HostsLook& look) {
  for (std::size_t i = 0; i < look.entries.size(); ++i) {
    const HostEntry& entry = look.entries[i];
    const std::string shown = Visible(entry.text);
    const std::string marks = MarksText(look, i);
    if (!entry.namesHost)
      std::printf("  %-27s%s\n", shown.c_str(), marks.c_str());
    else
      std::printf("  %-28s %s %s mask %08x%s\n", shown.c_str(),
                  entry.mask == VORN_HOST_MASK ? "host  " : "subnet",
                  Dotted(entry.address & entry.mask).c_str(), entry.mask, marks.c_str());
  }
  if (!HasUsable(look.entries))
    std::printf("no usable entry: an empty list admits everybody\n");
  if (HostListHasBothKinds(look.entries))
    std::printf("hosts and subnets: only a listed host inside a listed subnet is admitted\n");
}

void LookPrint(const HostsLook& look) {
  SourcePrint(look.list);
  if (!look.failure.empty())
    std::printf("%s\n", look.failure.c_str());
  if (!HasEntries(look.list) || !look.failure.empty())
    return;
  EntriesPrint(look);
  for (const Admission& admission : look.admissions)
    std::printf("%s: %s\n", admission.host.c_str(),
                !admission.namesHost ? "no such host"
                                     : (admission.isAdmitted ? "admitted" : "REFUSED"));
  for (const InterfaceFate& interface : look.interfaces)
    std::printf("interface %s: %s\n", Dotted(interface.address).c_str(), interface.fate);
}

const char* SourceText(HostListSource source) {
  if (source == HostListSource::NOWHERE)
    return "none";
  return source == HostListSource::IN_FILE ? "file" : "variable";
}

void MarksWrite(const HostsLook& look, std::size_t entry, JsonWriter* json) {
  json->ArrayBegin("marks");
  for (const HostMark& mark : look.marks) {
    if (mark.entry != entry)
      continue;
    json->ObjectBegin();
    json->Flag("wrong", mark.isTrouble);
    json->Text("text", mark.text);
    json->End();
  }
  json->End();
}

void EntriesWrite(const HostsLook& look, JsonWriter* json) {
  json->ArrayBegin("entries");
  for (std::size_t i = 0; i < look.entries.size(); ++i) {
    const HostEntry& entry = look.entries[i];
    json->ObjectBegin();
    json->Text("text", Visible(entry.text));
    json->Flag("usable", entry.namesHost);
    json->Text("address", Dotted(entry.address & entry.mask));
    json->Text("mask", Dotted(entry.mask));
    MarksWrite(look, i, json);
    json->End();
  }
  json->End();
}

void AnswersWrite(const HostsLook& look, JsonWriter* json) {
  json->ArrayBegin("asked");
  for (const Admission& admission : look.admissions) {
    json->ObjectBegin();
    json->Text("host", admission.host);
    json->Flag("known", admission.namesHost);
    json->Flag("admitted", admission.isAdmitted);
    json->End();
  }
  json->End();
  json->ArrayBegin("interfaces");
  for (const InterfaceFate& interface : look.interfaces) {
    json->ObjectBegin();
    json->Text("address", Dotted(interface.address));
    json->Text("fate", interface.fate);
    json->End();
  }
  json->End();
}

void LookWrite(const HostsLook& look) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "hosts");
  json.Text("name", look.list.name);
  json.Text("source", SourceText(look.list.source));
  json.Text("fault", look.failure.empty() ? FaultText(look.list) : look.failure);
  json.Flag("both_kinds", HostListHasBothKinds(look.entries));
  EntriesWrite(look, &json);
  AnswersWrite(look, &json);
  json.End();
  json.Print();
}

}  // namespace

ExitCode HostsCommand(const HostsOptions& options, Format format) {
  const HostsLook look = HostsLookGet(options);
  format == Format::JSON ? LookWrite(look) : LookPrint(look);
  return CodeGet(look);
}
