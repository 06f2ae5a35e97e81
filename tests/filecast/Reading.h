#ifndef FILECAST_READING_H
#define FILECAST_READING_H

#include "wire/Datagram.h"

#include <utility>

/// What `write` writes of `parts`; nothing if it refuses.
template <typename Write, typename... Parts>
std::string Written(Write write, const Parts&... parts) {
  std::string bytes(DATAGRAM_CAPACITY, '\0');
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes.data(), DATAGRAM_CAPACITY, 0};
  return write(&stream, parts...) ? bytes.substr(0, static_cast<std::size_t>(stream.position)) : "";
}

/// A datagram as the reader that its header asks for reads it.
struct Reading {
  explicit Reading(std::string text) : bytes(std::move(text)) {
    VORNCDRStream s{VORN_CDR_BIG_ENDIAN, bytes.data(), static_cast<int>(bytes.size()), 0};
    isGood = HeaderRead(&s, &header) &&
             (header.kind == Kind::HEARTBEAT ? HeartbeatRead(&s, header, &heartbeat)
              : header.kind == Kind::SAMPLE  ? SampleRead(&s, &data, &length)
              : header.kind == Kind::WINDOW  ? WindowRead(&s, header, &head, &arrived)
                                             : EndRead(&s, &reason));
  }
  /// What the writer writes of that; nothing if it was refused.
  std::string Again() const {
    return !isGood                          ? ""
           : header.kind == Kind::HEARTBEAT ? Written(HeartbeatWrite, header, heartbeat)
           : header.kind == Kind::SAMPLE    ? Written(SampleWrite, header, data, length)
           : header.kind == Kind::WINDOW    ? Written(WindowWrite, header, head, arrived)
                                            : Written(EndWrite, header, reason);
  }
  std::string bytes;
  Header header;
  Heartbeat heartbeat;
  WindowHead head;
  Bitmap arrived{0, SequenceNumber(), 0};
  const char* data = nullptr;
  int length = 0;
  ExitCode reason = ExitCode::OK;
  bool isGood = false;
};

#endif
