#ifndef VORNDIAG_HOST_TYPES_H
#define VORNDIAG_HOST_TYPES_H

#include "hosts/VORNEnvironment.h"

#include <string>

/// The types of host lists by the names that the command line has for them.
inline constexpr const char* HOST_LIST_TYPES[VORN_ENVIRONMENT_TYPE_COUNT] = {"", "manager", "app",
                                                                             "managee", "peer"};

/// The type of that name; `VORN_ENVIRONMENT_INVALID`, which is 0, for another name.
inline VORNEnvironmentType HostListTypeGet(const std::string& name) {
  int index = VORN_ENVIRONMENT_TYPE_COUNT - 1;
  while (index > 0 && name != HOST_LIST_TYPES[index])
    --index;
  return static_cast<VORNEnvironmentType>(index);
}

#endif
