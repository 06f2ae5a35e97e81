// What a reader accepts, the writer gives back byte for byte; what it refuses leaves an element
// that can still be used. The readers of the programs, which take what is sent to a group, put into
// a queue or typed in, give something or refuse it.

#include "Demand.h"
#include "Reading.h"
#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"
#include "vorndiag/Decode.h"
#include "vorndiag/McastProbe.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Returns the bytes that the element takes from its aligned start, or 0 when it is refused.
template <typename Element>
int RoundTripCheck(Element& element, std::vector<char> bytes, int start, VORNCDRByteOrder order) {
  const int size = static_cast<int>(bytes.size());
  std::vector<char> written(bytes.size(), '!');
  VORNCDRStream from{order, bytes.data(), size, start}, to{order, written.data(), size, start};
  if (element.Deserialize(&from) == 0)
    return 0;
  const int aligned = (start + 3) / 4 * 4;
  Demand(element.Serialize(&to) == 1, "what was read cannot be written");
  Demand(to.position == from.position, "what was written has another length");
  Demand(
      std::equal(bytes.begin() + aligned, bytes.begin() + to.position, written.begin() + aligned),
      "other bytes were written");
  return to.position - aligned;
}

void ProgramReadersTry(std::vector<char> bytes, VORNCDRByteOrder order) {
  for (const WireForm form : {WireForm::TIME, WireForm::SEQUENCE_NUMBER, WireForm::BITMAP}) {
    const Decoded decoded = DecodedGet(form, order, bytes);
    Demand(!decoded.text.empty() || !decoded.error.empty(), "neither a text nor a reason");
  }
  const std::optional<McastProbe> probe = McastProbeGet(bytes);
  Demand(!probe || McastProbeGet(McastProbeBytesGet(*probe)), "a probe that is refused again");
  Reading reading;
  std::vector<char> packed(READING_SIZE);
  if (ReadingUnpack(bytes.data(), static_cast<int>(bytes.size()), &reading))
    Demand(ReadingPack(reading, packed.data()) && packed == bytes, "another reading");
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
  ProgramReadersTry(bytes, order);
  Bitmap bitmap(data[0], number, data[0] & 8);
  RoundTripCheck(time, bytes, start, order);
  RoundTripCheck(number, bytes, start, order);
  const int length = RoundTripCheck(bitmap, bytes, start, order);
  char text[Bitmap::TEXT_SIZE];
  SequenceNumber first;
  // A window that runs over the end of the range of numbers holds no number.
  const bool holds = bitmap.BitInRange(bitmap.lead) != 0 && bitmap.Has(1) != 0;
  const bool finds = bitmap.BitFirstGet(bitmap.lead, 1, &first) != 0 && bitmap.BitInRange(first);
  Demand(length == 0 || length == 12 + (bitmap.size + 31) / 32 * 4, "a length without its words");
  Demand(bitmap.size >= 0 && bitmap.size <= Bitmap::CAPACITY, "a size beyond the capacity");
  Demand(finds == holds, "a bit is found that is not there, or not found");
  Demand(std::strlen(bitmap.ToString(text, sizeof text)) < sizeof text, "a text without an end");
  return 0;
}
