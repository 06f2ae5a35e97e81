#ifndef EXAMPLES_QUEUE_READING_H
#define EXAMPLES_QUEUE_READING_H

#include "reliability/SequenceNumber.h"
#include "time/VORNNtpTime.h"

#include <cstdint>

/// The queue that both programs use unless they are told another.
inline constexpr int DEFAULT_QUEUE_ID = 7;

/// What a sensor sends to the logger: 24 bytes, six 4-byte items, most significant byte first.
struct Reading {
  VORNNtpTime time;       ///< when it was taken, by the sensor's clock
  SequenceNumber number;  ///< 1 for a sensor's first reading, and one more for each that follows
  std::int32_t sensor;    ///< who took it
  std::int32_t value;     ///< thousandths of a degree
};

inline constexpr int READING_SIZE = 24;

/// Writes `reading` to `bytes` (`READING_SIZE` of them). Returns whether that worked.
bool ReadingPack(const Reading& reading, char* bytes);
/// Reads a reading from `length` bytes. Returns whether they are one.
bool ReadingUnpack(char* bytes, int length, Reading* reading);

#endif
