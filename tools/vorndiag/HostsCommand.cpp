#include "Commands.h"
#include "hosts/VORNEnvironment.h"
#include "hosts/VORNHostMask.h"
#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace {

constexpr const char* TYPE_NAMES[VORN_ENVIRONMENT_TYPE_COUNT] = {"", "manager", "app", "managee",
                                                                 "peer"};
constexpr int LIST_CAPACITY = 65536;

class MaskDelete : public HTRemoveFunc {
public:
  void Remove(const HTKeyClass* /*key*/, void* data) override {
    delete static_cast<VORNHostMask*>(data);
  }
};

std::string Visible(const std::string& text) {
  std::string visible;
  for (const char byte : text) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(byte));
    visible += std::isprint(static_cast<unsigned char>(byte)) != 0 ? std::string(1, byte) : escaped;
  }
  return visible;
}

// The list's text, and a line that says where it is from. A file settles it, also an unreadable
// one.
std::optional<std::string> ListGet(VORNEnvironmentType type) {
  const char* name = VORN_ENVIRONMENT_STRING[type];
  std::string text(LIST_CAPACITY, '\0');
  FILE* file = VornFileOpen(name, "r");
  const int error = errno;
  if (file != nullptr)
    static_cast<void>(std::fclose(file));
  else if (error != ENOENT)
    std::printf("WRONG: file %s cannot be opened: %s\n", name, std::strerror(error));
  const int useFile = file != nullptr ? 1 : 0;
  if (VornEnvironmentGet(text.data(), LIST_CAPACITY, type, 1 - useFile, useFile) == nullptr) {
    std::printf(useFile != 0 ? "WRONG: file %s cannot be read\n"
                             : "no list: no file %s here, and no variable of that name\n",
                name);
    return std::nullopt;
  }
  std::printf(useFile != 0 ? "from file %s in this directory\n" : "from environment variable %s\n",
              name);
  text.resize(std::strlen(text.c_str()));
  return text;
}

class List {
public:
  /// Adds and prints the entries of `text`. Returns how many are not as they should be.
  int EntriesAdd(const std::string& text);
  bool IsEmpty() const { return _count == 0; }
  bool Admits(const std::string& host);
  void InterfacesPrint();

private:
  bool EntryAdd(std::string entry);

  MaskDelete _delete;
  HTClass _table;
  int _count = 0;
};

// What is wrong with the form of an entry, or an empty text. "/24" is the mask 0x24, which hardly
// anybody means; what follows an address is ignored, but makes a name another one.
const char* FormComplaint(const std::string& entry) {
  const std::size_t slash = entry.find('/');
  if (slash != std::string::npos &&
      (entry.size() - slash != 9 ||
       entry.find_first_not_of("0123456789abcdefABCDEF", slash + 1) != std::string::npos))
    return "  WRONG: a mask is 8 hexadecimal digits";
  for (const char byte : entry.substr(0, slash))
    if (std::isalnum(static_cast<unsigned char>(byte)) == 0 && std::strchr(".-_", byte) == nullptr)
      return "  WRONG: holds a byte that is in no host's name";
  return "";
}

bool List::EntryAdd(std::string entry) {
  const std::string shown = Visible(entry);
  const char* complaint = FormComplaint(entry);
  const unsigned int mask = VornHostMaskGet(entry.data());
  entry.resize(std::strlen(entry.c_str()));
  const unsigned int address = VornStringToAddress(entry.c_str());
  if (address == 0 && entry != "0.0.0.0") {
    std::printf("  %-28s WRONG: no such host\n", shown.c_str());
    return false;
  }
  auto hostMask = std::make_unique<VORNHostMask>(address, mask);
  char dotted[VORN_ADDRESS_TEXT_SIZE];
  VornAddressToString(hostMask->address, dotted);
  std::printf("  %-28s %s %s mask %08x%s\n", shown.c_str(),
              mask == 0xFFFFFFFF ? "host  " : "subnet", dotted, mask, complaint);
  char text[VORN_ADDRESS_PORT_TEXT_SIZE];
  std::snprintf(text, sizeof text, "%08x/%08x", hostMask->address, mask);
  HTKeyClass key;
  key.Set(text);
  ++_count;
  // A refusal means that the entry is there twice.
  if (_table.InsertNode(&key, hostMask.get(), sizeof text, &_delete, HTNodeClass::LOCK) != 0)
    static_cast<void>(hostMask.release());
  return *complaint == '\0';
}

int List::EntriesAdd(const std::string& text) {
  int wrong = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    if (end > begin && !EntryAdd(text.substr(begin, end - begin)))
      ++wrong;
    begin = end + 1;
  }
  return wrong;
}

bool List::Admits(const std::string& host) {
  const unsigned int address = VornStringToAddress(host.c_str());
  const bool admitted = address != 0 && VornHostMaskMatch(&_table, address, 0) != 0;
  std::printf("%s: %s\n", host.c_str(),
              address == 0 ? "no such host" : (admitted ? "admitted" : "REFUSED"));
  return admitted;
}

// In this process only: the interface table is each process's own.
void List::InterfacesPrint() {
  const std::vector<VORNNICProperties> before(VORN_NIC, VORN_NIC + VORN_NIC_COUNT);
  VornSubnetMatch(&_table, nullptr, 0, nullptr);
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
  int index = VORN_ENVIRONMENT_TYPE_COUNT - 1;
  while (index > 0 && type != TYPE_NAMES[index])
    --index;
  const std::optional<std::string> text = ListGet(static_cast<VORNEnvironmentType>(index));
  if (!text)
    return EXIT_NOTHING;
  List list;
  bool isTrouble = list.EntriesAdd(*text) > 0;
  if (list.IsEmpty())
    std::printf("no usable entry: an empty list admits everybody\n");
  VORNDGramClass::NICInitialize();  // an entry for 127.0.0.1 admits this host's addresses
  for (const std::string& address : addresses)
    isTrouble |= !list.Admits(address);
  list.InterfacesPrint();
  VORNDGramClass::NICDestroy();
  return isTrouble ? EXIT_TROUBLE : EXIT_FINE;
}
