#ifndef HOSTLIST_HOST_LIST_H
#define HOSTLIST_HOST_LIST_H

#include "hosts/VORNEnvironment.h"
#include "hosts/VORNHostMask.h"

#include <string>
#include <vector>

/// A host list from its text to a table that the library can be asked about:
///
///     const HostListText list = HostListTextGet(VORN_ENVIRONMENT_PEER_HOSTS);
///     HostTable table;
///     for (const HostEntry& entry : HostEntriesGet(list.text))
///       if (entry.namesHost)
///         table.EntryAdd(entry);
///     VornHostMaskMatch(table.TableGet(), address, 0);
///
/// The library takes an empty list as one that admits everybody, so a program first asks what went
/// wrong. Nothing is printed here. Functions throw `std::bad_alloc` only. One thread at a time:
/// names are resolved with `gethostbyname`.

/// Where a list's text comes from.
enum class HostListSource {
  NOWHERE,      ///< there is neither a file nor a variable
  IN_FILE,      ///< the file of the list's name in the working directory
  IN_VARIABLE,  ///< the environment variable of that name
};

/// What is wrong with a list as a whole. A file that is there is never passed over for the
/// variable, also when it cannot be used: the variable may name other hosts than the file.
enum class HostListFault {
  NONE,
  CANNOT_OPEN,  ///< the file exists but cannot be opened; no text
  CANNOT_READ,  ///< the file cannot be read to its end; no text
  TOO_LONG,     ///< the text fills the room there is for it: its end may be missing, so that the
                ///< last entry may name another host
};

struct HostListText {
  const char* name = "";  ///< of the file and of the variable
  HostListSource source = HostListSource::NOWHERE;
  HostListFault fault = HostListFault::NONE;
  int error = 0;     ///< `errno` for `CANNOT_OPEN`, else 0
  std::string text;  ///< entries separated by colons
};

/// Reads the list of `type` as the library does: the file settles it if there is one, otherwise the
/// variable.
HostListText HostListTextGet(VORNEnvironmentType type);

/// What is odd in the form of an entry, even if the library makes an address of it.
enum class HostEntryForm {
  GOOD,
  SHORT_MASK,    ///< the mask is not 8 hexadecimal digits: "/24" is the mask 00000024
  OTHER_BYTE,    ///< the host holds a byte that no host's name has; after an address, the library
                 ///< ignores it
  OTHER_NUMBER,  ///< four numbers that are not written as addresses are: 10.0.0.999 is 10.0.3.231
};

struct HostEntry {
  std::string text;          ///< as it stands in the list
  int position = 0;          ///< in the list, from 1; empty entries count
  std::string host;          ///< without the mask
  unsigned int address = 0;  ///< of the host, in host byte order; 0 for none
  unsigned int mask = 0;     ///< 0xFFFFFFFF for an entry without a mask
  HostEntryForm form = HostEntryForm::GOOD;
  bool namesHost = false;  ///< there is an address, or the entry is 0.0.0.0 with the mask 0, which
                           ///< is every address
};

/// Takes a list's text apart and resolves the names in it. Empty entries are left out.
std::vector<HostEntry> HostEntriesGet(const std::string& text);

/// Entries by address and mask together, so that an address can be listed as a host and as a
/// subnet. Owns what it holds.
class HostTable {
public:
  /// Adds an entry that names a host. Returns false if its address and mask are in the table
  /// already; addresses that differ only outside of the mask are the same.
  bool EntryAdd(const HostEntry& entry);
  /// For the library's questions. The data of each node is a `VORNHostMask`.
  HTClass* TableGet() { return &_table; }

private:
  class MaskRemove : public HTRemoveFunc {
  public:
    void Remove(const HTKeyClass* key, void* data) override;
  };

  MaskRemove _remove;  // the table uses it while it is destroyed, so it comes first
  HTClass _table;
};

#endif
