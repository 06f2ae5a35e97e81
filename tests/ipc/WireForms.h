#ifndef IPC_WIRE_FORMS_H
#define IPC_WIRE_FORMS_H

#include "net/VORNDGram.h"
#include "platform/VornCDRStream.h"
#include "reliability/VORNBitmap.h"
#include "time/VORNNtpTime.h"

#include <string>

/// Datagrams with a time, a sequence number and a bitmap between two processes, which both know
/// what the n-th one holds.

constexpr int DATAGRAM_COUNT = 600;  ///< to and fro by turns; window sizes 0 to 256, both orders

struct WireForms {
  explicit WireForms(std::uint32_t n)
      : time(VORNNtpTime::FromWords(static_cast<std::int32_t>(n * 0x9E3779B9U), n * 0x85EBCA6BU)),
        number(SequenceNumber::FromInteger(std::int64_t{0x123456789} * n)),
        bits(static_cast<int>(n % 257), number, 0) {
    for (int i = 0; i < bits.size; ++i)
      bits.BitSet(number + i, i * static_cast<int>(n % 11) % 3);
  }
  std::string Text(VORNCDRByteOrder order) const {
    std::string text(512, '\0');
    VORNCDRStream stream;
    VornCDRStreamInitialize(&stream, text.data(), static_cast<int>(text.size()), order);
    time.Serialize(&stream);
    number.Serialize(&stream);
    bits.Serialize(&stream);
    return text.substr(0, static_cast<std::size_t>(stream.position));
  }
  /// Whether it says the same, and is read back as it was written.
  static bool IsSame(std::string text, const std::string& wanted, VORNCDRByteOrder order) {
    WireForms other(1);
    VORNCDRStream stream;
    VornCDRStreamInitialize(&stream, text.data(), static_cast<int>(text.size()), order);
    other.time.Deserialize(&stream);
    other.number.Deserialize(&stream);
    other.bits.Deserialize(&stream);
    return text == wanted && other.Text(order) == wanted;
  }

  VORNNtpTime time;
  SequenceNumber number;
  Bitmap bits;
};

/// Sends every second datagram to `peer` and receives the others, from which the side that does not
/// begin learns who its peer is. Returns how many came and went as they should.
inline int WireFormsExchange(VORNDGram& endpoint, KELNetioAddr peer, bool begins) {
  for (int n = 0; n < DATAGRAM_COUNT; ++n) {
    const auto order = n / 2 % 2 == 0 ? VORN_CDR_BIG_ENDIAN : VORN_CDR_LITTLE_ENDIAN;
    std::string text = WireForms(static_cast<std::uint32_t>(n)).Text(order);
    const int size = static_cast<int>(text.size());
    if ((n % 2 == 0) == begins) {
      VORNCDRStream stream{order, text.data(), size, size};
      if (endpoint.SendTo(&peer, &stream) != 1)
        return n;
      continue;
    }
    KELNtpTime wait{10, 0};
    char bytes[512];
    if (endpoint.HasDataWithSleep(&wait) <= 0)
      return n;
    const int length = endpoint.receiveFrom(&endpoint, &peer, bytes, sizeof bytes);
    if (length != size || !WireForms::IsSame(std::string(bytes, text.size()), text, order))
      return n;
  }
  return DATAGRAM_COUNT;
}

#endif
