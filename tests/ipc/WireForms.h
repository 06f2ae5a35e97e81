#ifndef IPC_WIRE_FORMS_H
#define IPC_WIRE_FORMS_H

#include "net/VORNDGram.h"
#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"

#include <algorithm>
#include <string>

/// A time, a sequence number and a bitmap, of which two processes know what the n-th ones hold. The
/// windows have sizes from 0 to 256.
struct WireForms {
  explicit WireForms(std::uint32_t n)
      : time(VORNNtpTime::FromWords(static_cast<std::int32_t>(n * 0x9E3779B9U), n * 0x85EBCA6BU)),
        number(SequenceNumber::FromInteger(std::int64_t{0x123456789} * n)),
        bits(static_cast<int>(n % 257), number, 0) {
    for (int i = 0; i < bits.size; ++i)
      bits.BitSet(number + i, i * static_cast<int>(n % 11) % 3);
  }
  std::string Text(VORNCDRByteOrder order) const {
    char bytes[512];
    VORNCDRStream stream{order, bytes, sizeof bytes, 0};
    time.Serialize(&stream);
    number.Serialize(&stream);
    bits.Serialize(&stream);
    return {bytes, static_cast<std::size_t>(stream.position)};
  }
  void Read(std::string text, VORNCDRByteOrder order) {
    VORNCDRStream stream{order, text.data(), static_cast<int>(text.size()), 0};
    time.Deserialize(&stream);
    number.Deserialize(&stream);
    bits.Deserialize(&stream);
  }

  VORNNtpTime time;
  SequenceNumber number;
  Bitmap bits;
};

inline void WireFormsSend(VORNDGram& endpoint, KELNetioAddr* peer, std::string text) {
  const int size = static_cast<int>(text.size());
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, text.data(), size, size};
  endpoint.SendTo(peer, &stream);
}

/// Stores who sent it. After ten seconds of silence there is no text.
inline std::string WireFormsReceive(VORNDGram& endpoint, KELNetioAddr* peer) {
  KELNtpTime wait{10, 0};
  char bytes[512];
  const bool isThere = endpoint.HasDataWithSleep(&wait) > 0;
  const int length = isThere ? endpoint.receiveFrom(&endpoint, peer, bytes, sizeof bytes) : 0;
  return {bytes, static_cast<std::size_t>(std::max(length, 0))};
}

#endif
