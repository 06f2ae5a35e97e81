#include "hosts/VORNHostListProperties.h"

void VornHostListPropertiesDefaultGet(VORNHostListProperties* properties) {
  if (properties != nullptr)
    *properties = {{1, 1, 0, 0}};
}
