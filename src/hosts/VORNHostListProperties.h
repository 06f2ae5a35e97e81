#ifndef HOSTS_VORN_HOST_LIST_PROPERTIES_H
#define HOSTS_VORN_HOST_LIST_PROPERTIES_H

#include "platform/VornExport.h"

#include <cstdint>

/// How the layers above use a host list. What the words mean is theirs: this library only gives the
/// defaults.
struct VORNHostListProperties {
  std::int32_t words[4];
};

/// Writes the defaults 1, 1, 0, 0. A null pointer is ignored.
VORN_API void VornHostListPropertiesDefaultGet(VORNHostListProperties* properties);

#endif
