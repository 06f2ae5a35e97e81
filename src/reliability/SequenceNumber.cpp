// -5 is stored as { -1, 4294967291 }, and its text is -(0,5). It cannot be given to Set as a pair,
// because the sign would have to stand on a zero.

#include "reliability/SequenceNumber.h"

#include "platform/KelDebug.h"
#include "platform/VornCDRStream.h"
#include "utils/internal/CDRLayout.h"
#include "utils/internal/WordPair.h"

#include <climits>
#include <cstdio>

namespace {

WordPair PairOf(const SequenceNumber& number) { return {number.high, number.low}; }

SequenceNumber NumberOf(WordPair pair) {
  SequenceNumber number;
  number.high = pair.high;
  number.low = pair.low;
  return number;
}

WordPair PairOf(std::int32_t value) {
  return {value < 0 ? -1 : 0, static_cast<std::uint32_t>(value)};
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

SequenceNumber SequenceNumber::operator++(int) {
  const SequenceNumber before = *this;
  Add(1);
  return before;
}

SequenceNumber SequenceNumber::Add(int n) { return *this = *this + n; }

SequenceNumber SequenceNumber::operator+(int n) const {
  return NumberOf(WordPairAdd(PairOf(*this), PairOf(n)));
}

SequenceNumber SequenceNumber::operator-(int n) const {
  return NumberOf(WordPairSubtract(PairOf(*this), PairOf(n)));
}

SequenceNumber SequenceNumber::operator+(const SequenceNumber& other) const {
  return NumberOf(WordPairAdd(PairOf(*this), PairOf(other)));
}

SequenceNumber SequenceNumber::operator-(const SequenceNumber& other) const {
  return NumberOf(WordPairSubtract(PairOf(*this), PairOf(other)));
}

// As an unsigned number, larger minus smaller is exact even where the signed difference wraps.
int SequenceNumber::Distance(const SequenceNumber& other) const {
  const bool isLarger = other < *this;
  const std::uint64_t distance =
      WordPairJoin(isLarger ? PairOf(*this - other) : PairOf(other - *this));
  return distance > INT_MAX ? INT_MAX : static_cast<int>(distance);
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
  std::snprintf(buffer, TEXT_SIZE, high < 0 ? "-(%ld,%lu)" : "(%ld,%lu)",
                static_cast<long>(magnitude.high), static_cast<unsigned long>(magnitude.low));
  return buffer;
}

void SequenceNumber::Print(unsigned int /*unused*/) const {
  KelDebugPrint("(%ld,%lu)", static_cast<long>(high), static_cast<unsigned long>(low));
}
