#include "wire/PeerList.h"

#include "wire/Failure.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr VORNEnvironmentType LIST = VORN_ENVIRONMENT_PEER_HOSTS;

std::string SourceText(const HostListText& list) {
  return std::string(list.source == HostListSource::IN_FILE ? "file " : "environment variable ") +
         list.name;
}

// Throws unless the whole list is there: to go on would admit others than the user wrote down.
void ListRequire(const HostListText& list) {
  std::string complaint;
  if (list.source == HostListSource::NOWHERE)
    complaint = std::string("--peers needs a file or an environment variable ") + list.name;
  else if (list.fault == HostListFault::CANNOT_OPEN)
    complaint = "cannot read the " + SourceText(list) + ": " + std::strerror(list.error);
  else if (list.fault == HostListFault::CANNOT_READ)
    complaint = "cannot read the " + SourceText(list);
  else if (list.fault == HostListFault::TOO_LONG)
    complaint = "the " + SourceText(list) + " is too long";
  if (!complaint.empty())
    throw Failure(ExitCode::PEERS_UNUSABLE, complaint);
}

// Four numbers are not taken for an address that is written otherwise, as the library alone would.
bool IsUsable(const HostEntry& entry) {
  return entry.namesHost && entry.form != HostEntryForm::OTHER_NUMBER;
}

}  // namespace

void PeerList::ListRead() {
  const HostListText list = HostListTextGet(LIST);
  ListRequire(list);
  for (const HostEntry& entry : HostEntriesGet(list.text)) {
    if (IsUsable(entry)) {
      _table.EntryAdd(entry);
      _hasList = true;
    } else {
      std::fprintf(stderr, "filecast: %s, entry %d: cannot resolve \"%s\"\n",
                   SourceText(list).c_str(), entry.position, entry.text.c_str());
    }
  }
  if (!_hasList)
    throw Failure(ExitCode::PEERS_UNUSABLE, SourceText(list) + ": no entry can be used");
}

void PeerList::InterfacesChoose() {
  if (_hasList)
    VornSubnetMatch(_table.TableGet(), nullptr, 0, nullptr);
}

bool PeerList::Admits(unsigned int address) {
  return !_hasList || VornHostMaskMatch(_table.TableGet(), address, 0) != 0;
}
