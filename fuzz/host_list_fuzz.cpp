// A text that comes in blocks of any size is filtered as the whole of it would be, and a mask is
// cut off at the slash. The first bytes of the input choose limit, separator and blocks.

#include "hosts/HostListModel.h"
#include "hosts/VORNEnvironment.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  if (size < 5)
    return 0;
  const std::string chosen(data, 5), input(data + 5, size - 5);
  const std::size_t limit = static_cast<unsigned char>(chosen[0]);
  const char separator = chosen[1] % 2 == 0 ? ':' : ',';
  const HostListModel model(input, limit, separator);
  std::string output(limit, '!');
  FilterStatus status{1, 0};
  int overflow = 0;
  std::size_t count = 0, at = 0;
  for (std::size_t block = 0; at < input.size() && overflow == 0; ++block) {
    const std::string part =
        input.substr(at, 1 + static_cast<unsigned char>(chosen[2 + block % 3]));
    at += part.size();
    count += static_cast<std::size_t>(
        FilterWhitespace(&status, &overflow, output.data() + count, static_cast<int>(limit - count),
                         part.data(), static_cast<int>(part.size()), separator, '#'));
  }
  if (count > limit || output.substr(0, count) != model.text || (overflow != 0) != model.overflow)
    std::abort();

  std::string entry = input.substr(0, input.find('\0')) + '\0';
  const std::size_t length = std::min(entry.find('/'), entry.size() - 1);
  const unsigned int mask = VornHostMaskGet(entry.data());
  if (entry.substr(0, entry.find('\0')) != input.substr(0, length) ||
      (length + 1 == entry.size() && mask != 0xFFFFFFFFU))
    std::abort();
  return 0;
}
