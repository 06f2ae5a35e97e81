#include "utils/miscUtils.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* const FAST_MODE = "fast mode";
const char* const SLOW_MODE = "slow mode";

// Minor number and letter are unsigned bytes, so the longest text is "-128.255" and one letter.
constexpr unsigned int VERSION_TEXT_SIZE = 10;

}  // namespace

char* StrDup(const char* src) {
  if (src == nullptr)
    return nullptr;
  auto* copy = static_cast<char*>(std::malloc(std::strlen(src) + 1));
  return copy != nullptr ? std::strcpy(copy, src) : nullptr;
}

int StrFree(char* s) {
  if (s == nullptr)
    return 0;
  std::free(s);
  return 1;
}

const char* SafeString(const char* s) { return s != nullptr ? s : "(NULL)"; }

char* VornVersionNumberToString(int version, char* buffer) {
  if (buffer == nullptr)
    return nullptr;
  std::snprintf(buffer, VERSION_TEXT_SIZE, "%d.%d%c", version >> 24, (version >> 16) & 0xFF,
                'a' + ((version >> 8) & 0xFF));
  return buffer;
}

const char* FastModeToString(int mode) { return mode != 0 ? FAST_MODE : SLOW_MODE; }

int VornTypeMaxSizeGet(int requested, int typeMax) {
  if (requested == -1)
    return typeMax;
  return requested > typeMax ? -1 : requested;
}
