// What a reader accepts, the writer gives back byte for byte; what it refuses leaves an element
// that can still be used.

#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Returns the bytes that the element takes from its aligned start, or 0 when it is refused.
template <typename Element>
int RoundTripCheck(Element& element, std::vector<char> bytes, int start, VORNCDRByteOrder order) {
  const int size = static_cast<int>(bytes.size());
  std::vector<char> written(bytes.size(), '!');
  VORNCDRStream from{order, bytes.data(), size, start}, to{order, written.data(), size, start};
  const bool accepted = element.Deserialize(&from) != 0;
  const int aligned = (start + 3) / 4 * 4;
  if (accepted && (element.Serialize(&to) == 0 || to.position != from.position ||
                   std::memcmp(&bytes[static_cast<std::size_t>(aligned)],
                               &written[static_cast<std::size_t>(aligned)],
                               static_cast<std::size_t>(to.position - aligned)) != 0))
    std::abort();
  return accepted ? to.position - aligned : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size == 0)
    return 0;
  const VORNCDRByteOrder order = (data[0] & 4) != 0 ? VORN_CDR_LITTLE_ENDIAN : VORN_CDR_BIG_ENDIAN;
  const std::vector<char> bytes(data + 1, data + size);
  const int start = std::min(data[0] & 3, static_cast<int>(bytes.size()));
  VORNNtpTime time;
  SequenceNumber number;
  Bitmap bitmap(data[0], number, data[0] & 8);
  RoundTripCheck(time, bytes, start, order);
  RoundTripCheck(number, bytes, start, order);
  const int length = RoundTripCheck(bitmap, bytes, start, order);
  char text[Bitmap::TEXT_SIZE];
  SequenceNumber first;
  // A window that runs over the end of the range of numbers holds no number.
  const bool holds = bitmap.BitInRange(bitmap.lead) != 0 && bitmap.Has(1) != 0;
  const bool finds = bitmap.BitFirstGet(bitmap.lead, 1, &first) != 0 && bitmap.BitInRange(first);
  if ((length != 0 && length != 12 + (bitmap.size + 31) / 32 * 4) || bitmap.size < 0 ||
      bitmap.size > 256 || finds != holds ||
      std::strlen(bitmap.ToString(text, sizeof text)) >= sizeof text)
    std::abort();
  return 0;
}
