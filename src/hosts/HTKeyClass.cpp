// The one operation of the hash table that the library defines itself: the middleware's container
// library, like the one in platform/linux, expects it from here.

#include "platform/HTClass.h"

int HTKeyClass::Set(const char* key) {
  text = key;
  if (key == nullptr) {
    status = -1;
    return 0;
  }
  status = 0;
  hash = 0;
  return 1;
}
