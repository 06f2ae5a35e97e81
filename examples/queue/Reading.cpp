#include "Reading.h"

#include "platform/VornCDRStream.h"

bool ReadingPack(const Reading& reading, char* bytes) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, READING_SIZE, VORN_CDR_BIG_ENDIAN);
  return reading.time.Serialize(&stream) != 0 && reading.number.Serialize(&stream) != 0 &&
         VornCDR4ByteSerialize(&stream, &reading.sensor) != 0 &&
         VornCDR4ByteSerialize(&stream, &reading.value) != 0;
}

bool ReadingUnpack(char* bytes, int length, Reading* reading) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, bytes, length, VORN_CDR_BIG_ENDIAN);
  return length == READING_SIZE && reading->time.Deserialize(&stream) != 0 &&
         reading->number.Deserialize(&stream) != 0 &&
         VornCDR4ByteDeserialize(&stream, &reading->sensor) != 0 &&
         VornCDR4ByteDeserialize(&stream, &reading->value) != 0;
}
