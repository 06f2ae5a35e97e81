#ifndef FILECAST_RECEIVER_LOGIC_H
#define FILECAST_RECEIVER_LOGIC_H

#include "Datagram.h"

#include <cstdint>

/// What a receiver knows of one session, without socket, file or clock: which samples have arrived.
///
/// The window begins at the first missing sample. Samples beyond its 256 places are not taken: the
/// sender repeats them when the window has moved.
class ReceiverLogic {
public:
  ReceiverLogic(const FileDescription& file, std::uint32_t session);

  const FileDescription& FileGet() const { return _file; }
  std::uint32_t SessionGet() const { return _session; }

  /// Whether a sample of `length` bytes is wanted: it belongs to the file, has its proper length,
  /// lies in the window and is not there yet. The caller stores its bytes and calls `SampleStored`.
  bool SampleIsWanted(const SequenceNumber& number, int length) const;
  void SampleStored(const SequenceNumber& number);

  /// The window, as far as the sender has sent: what is clear in it is missing.
  void WindowGet(const SequenceNumber& highest, Bitmap* window) const;

  /// First missing sample; one past the last when all have arrived.
  std::int64_t LeadGet() const { return NumberOf(_arrived.lead); }
  bool IsWhole() const { return LeadGet() > _file.SampleCount(); }

private:
  FileDescription _file;
  std::uint32_t _session;
  Bitmap _arrived;
};

#endif
