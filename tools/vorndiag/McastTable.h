#ifndef VORNDIAG_MCAST_TABLE_H
#define VORNDIAG_MCAST_TABLE_H

#include "hostlist/HostList.h"
#include "net/VORNDGram.h"
#include "vorndiag/HostTypes.h"

#include <string>

/// The interface table for the time of a run, pruned as programs do by a host list.
class McastTable {
public:
  /// `hostType` is that of the list, empty for none.
  explicit McastTable(const std::string& hostType)
      : _isThere(VORNDGramClass::NICInitialize() != 0) {
    if (!_isThere)
      _failure = "no memory";
    else if (!hostType.empty())
      Prune(HostListTextGet(HostListTypeGet(hostType)));
  }
  ~McastTable() {
    if (_isThere)
      VORNDGramClass::NICDestroy();
  }
  McastTable(const McastTable&) = delete;
  McastTable& operator=(const McastTable&) = delete;
  /// Why there is no such table; empty if there is.
  const std::string& FailureGet() const { return _failure; }

private:
  // A list that cannot be read whole would prune something else than programs do.
  void Prune(const HostListText& list) {
    if (list.source == HostListSource::NOWHERE || list.fault != HostListFault::NONE) {
      _failure = std::string("there is no host list ") + list.name + " that can be read";
      return;
    }
    HostTable hosts;
    for (const HostEntry& entry : HostEntriesGet(list.text))
      if (entry.namesHost)
        hosts.EntryAdd(entry);
    VornSubnetMatch(hosts.TableGet(), nullptr, 0, nullptr);
  }

  bool _isThere;
  std::string _failure;
};

#endif
