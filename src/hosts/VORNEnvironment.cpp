#include "hosts/VORNEnvironment.h"

#include "net/miscIPUtils.h"
#include "utils/internal/Diagnostics.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

const char* VORN_ENVIRONMENT_STRING[VORN_ENVIRONMENT_TYPE_COUNT] = {
    "HOST_TYPE_INVALID", "VORN_MANAGER_HOSTS", "VORN_APP_HOSTS", "VORN_MANAGEE_HOSTS",
    "VORN_PEER_HOSTS"};

namespace {

char noHosts[] = "";

constexpr const char* TAG = "VornEnvironmentGet:";
constexpr char ENTRY_SEPARATOR = ':';
constexpr char COMMENT_START = '#';
constexpr std::size_t BLOCK_SIZE = 63;
// Blanks and comments fill no buffer, so a device or pipe could go on with them for ever.
constexpr std::size_t FILE_SIZE_LIMIT = std::size_t{1} << 24;

// Filters the file into `buffer`, `limit` bytes at most. Returns the bytes kept. What went wrong
// is told, and is in the stream's error flag.
int FileFilter(FILE* file, const char* name, char* buffer, int limit) {
  FilterStatus status{1, 0};
  int count = 0;
  std::size_t room = FILE_SIZE_LIMIT;
  do {
    char block[BLOCK_SIZE];
    const std::size_t length = std::fread(block, 1, sizeof block, file);
    if (length == 0 && std::feof(file) == 0) {
      DiagnosticPrint(Diagnostic::FAILURE, "%s error %d reading file %s\n", TAG, std::ferror(file),
                      name);
      break;
    }
    const std::size_t used = std::min(length, room);
    room -= used;
    int overflow = 0;
    count += FilterWhitespace(&status, &overflow, buffer + count, limit - count, block,
                              static_cast<int>(used), ENTRY_SEPARATOR, COMMENT_START);
    if (overflow != 0 || used < length) {
      DiagnosticPrint(Diagnostic::FAILURE, "%s file too long. max %d\n", TAG, VORN_HOST_LIST_SIZE);
      break;
    }
  } while (std::feof(file) == 0);
  return count;
}

// Reads the list from an open file, which it closes. Returns the buffer, or null after an error.
char* FileRead(FILE* file, const char* name, char* buffer, int length) {
  DiagnosticPrint(Diagnostic::NOTE, "%s using file %s\n", TAG, name);
  // One less in the smallest buffer, which must hold a terminator as well.
  const int count = FileFilter(file, name, buffer, std::min(VORN_HOST_LIST_SIZE, length - 1));
  const bool failed = std::ferror(file) != 0;
  if (failed)
    DiagnosticPrint(Diagnostic::FAILURE, "%s error reading file %s\n", TAG, name);
  static_cast<void>(std::fclose(file));
  if (failed)
    return nullptr;
  if (count > 0)
    buffer[buffer[count - 1] == ENTRY_SEPARATOR ? count - 1 : count] = '\0';
  return buffer;
}

char* VariableCopy(const char* name, char* buffer, int length) {
  const char* value = std::getenv(name);
  if (value == nullptr) {
    DiagnosticPrint(Diagnostic::NOTE, "%s environment variable %s not found\n", TAG, name);
    return nullptr;
  }
  DiagnosticPrint(Diagnostic::NOTE, "%s using environment variable %s\n", TAG, name);
  const auto room = static_cast<std::size_t>(length) - 1;
  std::size_t valueLength = std::strlen(value);
  if (valueLength > room) {
    DiagnosticPrint(Diagnostic::FAILURE, "%s environment variable %s longer than %d bytes\n", TAG,
                    name, length - 1);
    valueLength = room;
  }
  std::memcpy(buffer, value, valueLength);
  buffer[valueLength] = '\0';
  return buffer;
}

bool IsBlank(char byte, char separator) {
  return byte == '\t' || byte == '\n' || byte == ' ' || byte == separator;
}

}  // namespace

char* VORN_APP_HOSTS_ALL = noHosts;
char* VORN_MANAGEE_HOSTS_ALL = noHosts;

char* VornEnvironmentGet(char* buffer, int length, VORNEnvironmentType type, int useEnvironment,
                         int useFile) {
  if (buffer == nullptr || length < VORN_HOST_LIST_SIZE || (useEnvironment == 0 && useFile == 0) ||
      type <= VORN_ENVIRONMENT_INVALID || type >= VORN_ENVIRONMENT_TYPE_COUNT)
    return nullptr;
  const char* name = VORN_ENVIRONMENT_STRING[type];
  FILE* file = useFile != 0 ? VornFileOpen(name, "r") : nullptr;
  if (file != nullptr)
    return FileRead(file, name, buffer, length);
  DiagnosticPrint(Diagnostic::NOTE, "%s file %s not found\n", TAG, name);
  return useEnvironment != 0 ? VariableCopy(name, buffer, length) : nullptr;
}

int FilterWhitespace(FilterStatus* status, int* overflow, char* output, int limit,
                     const char* input, int inputLength, char separator, char comment) {
  if (overflow == nullptr)
    return 0;
  *overflow = 0;
  if (status == nullptr || (output == nullptr && limit > 0) ||
      (input == nullptr && inputLength > 0))
    return 0;
  int written = 0;
  for (int i = 0; i < inputLength; ++i) {
    const char byte = input[i];
    if (status->inComment != 0) {
      if (byte != '\n')
        continue;
      status->inComment = 0;
    } else if (byte == comment) {
      status->inComment = 1;
      continue;
    }
    const bool blank = IsBlank(byte, separator);
    if (blank && (status->lastWasSeparator != 0 || written >= limit))
      continue;
    if (written >= limit) {
      *overflow = 1;
      return written;
    }
    output[written++] = blank ? separator : byte;
    status->lastWasSeparator = blank ? 1 : 0;
  }
  return written;
}

FILE* VornFileOpen(const char* path, const char* mode) {
  return path != nullptr && mode != nullptr ? std::fopen(path, mode) : nullptr;
}

unsigned int VornHostMaskGet(char* entry) {
  char* slash = entry != nullptr ? std::strchr(entry, '/') : nullptr;
  if (slash == nullptr)
    return VORN_HOST_MASK;
  unsigned int mask = VORN_HOST_MASK;
  if (std::sscanf(slash + 1, "%8x", &mask) != 1)
    mask = VORN_HOST_MASK;
  *slash = '\0';
  return mask;
}
