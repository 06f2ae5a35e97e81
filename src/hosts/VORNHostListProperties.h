#ifndef HOSTS_VORN_HOST_LIST_PROPERTIES_H
#define HOSTS_VORN_HOST_LIST_PROPERTIES_H

#include "platform/VornExport.h"

#include <cstdint>

/// How the layers above use a host list. They give the words their meaning; this library only has
/// the defaults. Append only: programs are linked against the order of the fields.
struct VORNHostListProperties {
  std::int32_t words[4];  ///< not read by this library
};

/// Writes the defaults 1, 1, 0, 0. A null pointer is ignored.
VORN_API void VornHostListPropertiesDefaultGet(VORNHostListProperties* properties);

#endif
