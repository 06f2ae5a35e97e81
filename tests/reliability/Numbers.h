#ifndef RELIABILITY_NUMBERS_H
#define RELIABILITY_NUMBERS_H

#include "reliability/SequenceNumber.h"

inline std::int64_t Value(const SequenceNumber& n) { return n.high * (1LL << 32) + n.low; }

inline SequenceNumber Number(std::int64_t value) {
  SequenceNumber number;
  number.high = static_cast<std::int32_t>(value >> 32);
  number.low = static_cast<std::uint32_t>(value);
  return number;
}

#endif
