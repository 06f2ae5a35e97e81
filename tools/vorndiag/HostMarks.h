#ifndef VORNDIAG_HOST_MARKS_H
#define VORNDIAG_HOST_MARKS_H

#include "hostlist/HostList.h"

#include <string>
#include <vector>

/// What is odd in a host list, although the library says nothing of it. Pure functions.

struct HostMark {
  std::size_t entry = 0;   ///< index in the entries
  bool isTrouble = false;  ///< the entry does not do what it seems to do; else it is only of no use
  std::string text;
};

/// The marks of a list's entries, in the order of the entries.
std::vector<HostMark> HostMarksGet(const std::vector<HostEntry>& entries);

/// Whether hosts and subnets are listed, so that only listed hosts inside listed subnets are
/// admitted.
bool HostListHasBothKinds(const std::vector<HostEntry>& entries);

#endif
