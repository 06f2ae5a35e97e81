// A text that comes in blocks of any size is filtered as the whole of it would be, and what stands
// in it is taken apart: a mask is cut off at the slash, an address is made of numbers or of a name.
// The first bytes of the input choose limit, separator and blocks.

#include "Demand.h"
#include "hostlist/HostList.h"
#include "hosts/HostListModel.h"
#include "net/miscIPUtils.h"

#include <netdb.h>

// In the place of the system's, so that no name is asked of the network: every one is 1.2.3.4.
extern "C" VORN_API hostent* gethostbyname(const char* /*name*/) {
  static char bytes[] = {1, 2, 3, 4}, *list[] = {bytes, nullptr};
  static hostent host{nullptr, nullptr, AF_INET, 4, list};
  return &host;
}

namespace {

/// `input` has no zero byte.
void EntryTry(const std::string& input) {
  std::string entry = input;
  const std::size_t slash = entry.find('/');
  const unsigned int mask = VornHostMaskGet(entry.data());
  entry.resize(entry.find('\0') == std::string::npos ? entry.size() : entry.find('\0'));
  Demand(entry == input.substr(0, slash), "the entry is cut elsewhere");
  Demand(slash != std::string::npos || mask == ~0U, "a mask without a slash");
  VornStringToAddress(entry.c_str());
  int position = 0;
  HostTable table;
  for (const HostEntry& each : HostEntriesGet(input)) {
    Demand(each.position > position, "positions do not rise");
    Demand(each.text.find(':') == std::string::npos, "two entries in one");
    position = each.position;
    if (each.namesHost)
      table.EntryAdd(each);
  }
  VornHostMaskMatch(table.TableGet(), mask, 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  Demand(VornStringToAddress("localhost") == 0x01020304, "the system is asked for names");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size < 5)
    return 0;
  const std::string input(data + 5, data + size);
  const char separator = data[1] % 2 == 0 ? ':' : ',';
  const std::vector<std::size_t> sizes{data[2] + 1U, data[3] + 1U, data[4] + 1U};
  const std::string difference = FilterDifference(input, data[0], separator, sizes);
  Demand(difference.empty(), difference.c_str());
  EntryTry(input.substr(0, input.find('\0')));
  return 0;
}
