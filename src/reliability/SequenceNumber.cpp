// -5 is stored as { -1, 4294967291 }, and its text is -(0,5). It cannot be given to Set as a pair,
// because the sign would have to stand on a zero.

// Here the header's arithmetic becomes the functions that the library exports.
#define SEQUENCE_NUMBER_INLINE
#include "reliability/SequenceNumber.h"

#include "platform/KelDebug.h"
#include "platform/VornCDRStream.h"
#include "utils/internal/CDRLayout.h"
#include "utils/internal/WordPair.h"

#include <charconv>

namespace {

WordPair PairOf(const SequenceNumber& number) { return {number.high, number.low}; }

SequenceNumber NumberOf(WordPair pair) {
  SequenceNumber number;
  number.high = pair.high;
  number.low = pair.low;
  return number;
}

}  // namespace

SequenceNumber::SequenceNumber(long newHigh, unsigned long newLow) { Set(newHigh, newLow); }

SequenceNumber::SequenceNumber(int value) { Set(value); }

// The sign is that of the whole long: 4294967295 is a positive number where a long can hold it.
void SequenceNumber::Set(long value) {
  high = value < 0 ? -1 : 0;
  low = static_cast<std::uint32_t>(value);
}

void SequenceNumber::Set(long newHigh, unsigned long newLow) {
  *this = NumberOf(WordPairFromMagnitude(static_cast<std::int32_t>(newHigh),
                                         static_cast<std::uint32_t>(newLow)));
}

SequenceNumber SequenceNumber::Absolute() const {
  return NumberOf(WordPairMagnitude(PairOf(*this)));
}

int SequenceNumber::ElementSize(int offset) { return CDRElementSize(offset, 8); }

int SequenceNumber::Serialize(VORNCDRStream* stream) const {
  return VornCDR4ByteSerialize(stream, &high) != 0 && VornCDR4ByteSerialize(stream, &low) != 0;
}

int SequenceNumber::Deserialize(VORNCDRStream* stream) {
  return VornCDR4ByteDeserialize(stream, &high) != 0 && VornCDR4ByteDeserialize(stream, &low) != 0;
}

char* SequenceNumber::ToString(char* buffer, int /*length*/) const {
  if (buffer == nullptr)
    return nullptr;
  const SequenceNumber magnitude = Absolute();
  char* end = buffer;
  if (high < 0)
    *end++ = '-';
  *end++ = '(';
  end = std::to_chars(end, buffer + TEXT_SIZE, magnitude.high).ptr;
  *end++ = ',';
  end = std::to_chars(end, buffer + TEXT_SIZE, magnitude.low).ptr;
  *end++ = ')';
  *end = '\0';
  return buffer;
}

void SequenceNumber::Print(unsigned int /*unused*/) const {
  KelDebugPrint("(%ld,%lu)", static_cast<long>(high), static_cast<unsigned long>(low));
}
