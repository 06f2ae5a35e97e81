#include "hostlist/HostList.h"

#include "net/miscIPUtils.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr int TEXT_CAPACITY = 65536;  // for a variable; of a file less is kept
constexpr std::size_t MASK_DIGITS = 8;
constexpr short KEY_SIZE = 2 * MASK_DIGITS + 2;
constexpr short MARKED_TOO = HTClass::MARKED | HTClass::IN_USE;

// Returns whether there is a text, stored in `list` with a word about its length.
bool TextRead(VORNEnvironmentType type, HostListSource source, HostListText* list) {
  const bool isFile = source == HostListSource::IN_FILE;
  // Zeros, because a file of nothing but comments stores nothing, not even a terminator.
  std::string text(TEXT_CAPACITY, '\0');
  if (VornEnvironmentGet(text.data(), TEXT_CAPACITY, type, isFile ? 0 : 1, isFile ? 1 : 0) ==
      nullptr)
    return false;
  text.resize(std::strlen(text.c_str()));
  // A separator that came last in a full text was taken away.
  const std::size_t full =
      static_cast<std::size_t>(isFile ? VORN_HOST_LIST_SIZE : TEXT_CAPACITY) - 1;
  if (text.size() >= full)
    list->fault = HostListFault::TOO_LONG;
  list->source = source;
  list->text = std::move(text);
  return true;
}

bool MaskIsWhole(const std::string& mask) {
  return mask.size() == MASK_DIGITS && std::all_of(mask.begin(), mask.end(), [](unsigned char c) {
           return std::isxdigit(c) != 0;
         });
}

bool IsNameByte(unsigned char byte) {
  return std::isalnum(byte) != 0 || byte == '.' || byte == '-' || byte == '_';
}

HostEntryForm FormGet(const HostEntry& entry) {
  const std::size_t slash = entry.text.find('/');
  if (slash != std::string::npos && !MaskIsWhole(entry.text.substr(slash + 1)))
    return HostEntryForm::SHORT_MASK;
  if (!std::all_of(entry.host.begin(), entry.host.end(), IsNameByte))
    return HostEntryForm::OTHER_BYTE;
  char printed[VORN_ADDRESS_TEXT_SIZE];
  const bool isNumbers =
      !entry.host.empty() && entry.host.find_first_not_of("0123456789.") == std::string::npos;
  if (isNumbers && entry.host != VornAddressToStringPrintable(entry.address, printed))
    return HostEntryForm::OTHER_NUMBER;
  return HostEntryForm::GOOD;
}

HostEntry EntryGet(const std::string& text, int position) {
  HostEntry entry;
  entry.text = text;
  entry.position = position;
  entry.host = text;
  entry.mask = VornHostMaskGet(entry.host.data());
  entry.host.resize(std::strlen(entry.host.c_str()));
  entry.address = entry.host.empty() ? 0 : VornStringToAddress(entry.host.c_str());
  entry.form = FormGet(entry);
  entry.namesHost = entry.address != 0 || (entry.host == "0.0.0.0" && entry.mask == 0);
  return entry;
}

}  // namespace

HostListText HostListTextGet(VORNEnvironmentType type) {
  HostListText list;
  if (type <= VORN_ENVIRONMENT_INVALID || type >= VORN_ENVIRONMENT_TYPE_COUNT)
    return list;
  list.name = VORN_ENVIRONMENT_STRING[type];
  if (TextRead(type, HostListSource::IN_FILE, &list))
    return list;
  errno = 0;
  FILE* file = VornFileOpen(list.name, "r");
  if (file == nullptr && errno == ENOENT) {
    TextRead(type, HostListSource::IN_VARIABLE, &list);
    return list;
  }
  list.source = HostListSource::IN_FILE;
  list.fault = file != nullptr ? HostListFault::CANNOT_READ : HostListFault::CANNOT_OPEN;
  if (file == nullptr)
    list.error = errno;
  else
    static_cast<void>(std::fclose(file));
  return list;
}

std::vector<HostEntry> HostEntriesGet(const std::string& text) {
  std::vector<HostEntry> entries;
  int position = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    ++position;
    if (end > begin)
      entries.push_back(EntryGet(text.substr(begin, end - begin), position));
    begin = end + 1;
  }
  return entries;
}

void HostTable::MaskRemove::Remove(const HTKeyClass* /*key*/, void* data) {
  delete static_cast<VORNHostMask*>(data);
}

bool HostTable::EntryAdd(const HostEntry& entry) {
  auto mask = std::make_unique<VORNHostMask>(entry.address, entry.mask);
  char text[KEY_SIZE];
  std::snprintf(text, sizeof text, "%08x/%08x", mask->address, mask->mask);
  HTKeyClass key;
  key.Set(text);
  if (_table.Find(&key, MARKED_TOO, HTNodeClass::LOCK) != nullptr)
    return false;
  if (_table.InsertNode(&key, mask.get(), sizeof text, &_remove, HTNodeClass::LOCK) == 0)
    throw std::bad_alloc();
  static_cast<void>(mask.release());
  return true;
}
