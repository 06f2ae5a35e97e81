#include "net/VORNMulticast.h"

void VornMulticastPropertiesDefaultGet(VORNMulticastProperties* properties) {
  if (properties == nullptr)
    return;
  properties->enable = 0;
  properties->ttl = 1;
  properties->loopback = 1;
}
