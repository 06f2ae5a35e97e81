#ifndef FILECAST_RECEIVER_RECEIVE_WINDOW_H
#define FILECAST_RECEIVER_RECEIVE_WINDOW_H

#include "wire/Datagram.h"

#include <cstdint>

/// Which samples of a file have arrived at a receiver, without socket, file or clock.
///
/// The window begins at the first missing sample. Samples beyond its 256 places are not taken: the
/// sender repeats them when the window has moved.
class ReceiveWindow {
public:
  explicit ReceiveWindow(const FileDescription& file);

  const FileDescription& FileGet() const { return _file; }

  /// Whether a sample of `length` bytes is wanted: it belongs to the file, has its proper length,
  /// lies in the window and is not there yet. The caller stores its bytes and calls `SampleStored`.
  bool SampleIsWanted(const SequenceNumber& number, int length) const;
  void SampleStored(const SequenceNumber& number);

  /// Stores the window, as far as the sender has sent: what is clear in it is missing.
  void ArrivedGet(const SequenceNumber& highest, Bitmap* arrived) const;

  /// First missing sample; one past the last when all have arrived.
  std::int64_t LeadGet() const { return _arrived.lead.IntegerGet(); }
  bool IsWhole() const { return LeadGet() > _file.SampleCount(); }

private:
  FileDescription _file;
  Bitmap _arrived;
};

#endif
