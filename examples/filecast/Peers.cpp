#include "Peers.h"

#include "Addresses.h"
#include "ExitCode.h"
#include "hosts/VORNEnvironment.h"
#include "hosts/VORNHostMask.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr const char* LIST_NAME = "VORN_PEER_HOSTS";
constexpr int LIST_CAPACITY = 65536;

// Returns the list's text, and in `source` where it was found.
std::string ListTextGet(std::string* source) {
  FILE* file = VornFileOpen(LIST_NAME, "r");
  const bool isThere = file != nullptr || errno != ENOENT;
  if (file != nullptr)
    std::fclose(file);
  else if (isThere)  // to go on without it would admit others than the user wrote down
    throw Failure(ExitCode::PEERS_UNUSABLE,
                  std::string("cannot read the file ") + LIST_NAME + ": " + std::strerror(errno));
  *source = std::string(isThere ? "file " : "environment variable ") + LIST_NAME;
  std::string text(LIST_CAPACITY, '\0');
  if (VornEnvironmentGet(text.data(), LIST_CAPACITY, VORN_ENVIRONMENT_PEER_HOSTS, isThere ? 0 : 1,
                         isThere ? 1 : 0) == nullptr)
    throw Failure(ExitCode::PEERS_UNUSABLE,
                  isThere ? "cannot read the " + *source
                          : std::string("--peers needs a file or an environment variable ") +
                                LIST_NAME);
  text.resize(std::strlen(text.c_str()));
  return text;
}

}  // namespace

void Peers::MaskRemove::Remove(const HTKeyClass* /*key*/, void* data) {
  delete static_cast<VORNHostMask*>(data);
}

bool Peers::EntryAdd(std::string entry) {
  const unsigned int mask = VornHostMaskGet(entry.data());
  entry.resize(std::strlen(entry.c_str()));
  const unsigned int address = AddressResolve(entry);
  if (address == 0 && !(mask == 0 && entry == "0.0.0.0"))
    return false;
  auto hostMask = std::make_unique<VORNHostMask>(address, mask);
  char text[32];
  std::snprintf(text, sizeof text, "%08x/%08x", hostMask->address, hostMask->mask);
  HTKeyClass key;
  key.Set(text);
  // A refusal means that the same host was listed before.
  if (_table.InsertNode(&key, hostMask.get(), sizeof text, &_remove, HTNodeClass::LOCK) != 0)
    static_cast<void>(hostMask.release());
  return true;
}

void Peers::ListRead() {
  std::string source;
  const std::string text = ListTextGet(&source);
  int position = 0;
  int usable = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    const std::string entry = text.substr(begin, end - begin);
    begin = end + 1;
    ++position;
    if (entry.empty())
      continue;
    if (EntryAdd(entry))
      ++usable;
    else
      std::fprintf(stderr, "filecast: %s, entry %d: cannot resolve \"%s\"\n", source.c_str(),
                   position, entry.c_str());
  }
  if (usable == 0)
    throw Failure(ExitCode::PEERS_UNUSABLE, source + ": no entry can be used");
  _hasList = true;
}

void Peers::InterfacesChoose() {
  if (_hasList)
    VornSubnetMatch(&_table, nullptr, 0, nullptr);
}

bool Peers::Admits(unsigned int address) {
  return !_hasList || VornHostMaskMatch(&_table, address, 0) != 0;
}
