// Datagrams of filecast: what a reader accepts is told back byte for byte by the writer, and no
// datagram that is accepted can lead the sender's schedule or the receiver's window out of a file.

#include "Demand.h"
#include "receiver/ReceiveWindow.h"
#include "sender/SendSchedule.h"
#include "wire/Datagram.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::int64_t LARGEST_KEPT = 1000;  // samples; memory of a schedule grows with them

/// A stream to write into, and what was written.
struct Writer {
  char bytes[DATAGRAM_CAPACITY];
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, 0};

  std::string Text() const { return {bytes, static_cast<std::size_t>(stream.position)}; }
};

FileDescription FileSmall() {
  FileDescription file;
  file.size = 100 * SAMPLE_CAPACITY - 7;
  file.sampleSize = SAMPLE_CAPACITY;
  file.name = "file";
  return file;
}

void HeartbeatTry(VORNCDRStream* stream, const Header& header, const std::string& datagram) {
  Heartbeat heartbeat;
  if (!HeartbeatRead(stream, header, &heartbeat))
    return;
  Writer writer;
  Demand(HeartbeatWrite(&writer.stream, header, heartbeat), "an accepted heartbeat is too long");
  Demand(writer.Text() == datagram, "a heartbeat is told back otherwise");
  const FileDescription& file = heartbeat.file;
  const std::int64_t last = file.SampleCount();
  Demand(last >= 0 && FileNameIsSafe(file.name), "a file that cannot be");
  if (last == 0)
    return;
  Demand(file.SampleOffset(last) + static_cast<unsigned>(file.SampleLength(last)) == file.size,
         "the last sample does not end with the file");
  ReceiveWindow window(file);
  for (const std::int64_t number : {header.number.IntegerGet(), std::int64_t{1}, last}) {
    const SequenceNumber sn = SequenceNumber::FromInteger(number);
    if (number > 0 && window.SampleIsWanted(sn, file.SampleLength(number)))
      window.SampleStored(sn);
  }
  Demand(window.LeadGet() > 1, "the first sample has come and is still missing");
}

void SampleTry(VORNCDRStream* stream, const Header& header, const std::string& datagram) {
  const char* bytes = nullptr;
  int length = 0;
  if (!SampleRead(stream, &bytes, &length))
    return;
  Writer writer;
  Demand(SampleWrite(&writer.stream, header, bytes, length), "an accepted sample is too long");
  Demand(writer.Text() == datagram, "a sample is told back otherwise");
  ReceiveWindow window(FileSmall());
  const bool isWanted = window.SampleIsWanted(header.number, length);
  Demand(!isWanted || header.number.IntegerGet() <= Bitmap::CAPACITY, "a sample beyond the window");
}

void WindowTry(VORNCDRStream* stream, const Header& header, const std::string& datagram) {
  WindowHead head;
  Bitmap arrived(0, SequenceNumber(), 0);
  if (!WindowRead(stream, header, &head, &arrived))
    return;
  Writer writer;
  Demand(WindowWrite(&writer.stream, header, head, arrived), "an accepted window is too long");
  Demand(writer.Text() == datagram, "a window is told back otherwise");
  const FileDescription file = FileSmall();
  SendSchedule schedule(file);
  for (int i = 0; i < 50; ++i)
    schedule.SampleNext();
  schedule.HeartbeatNext({});
  schedule.WindowApply(head, arrived, {1, 2}, VORNNtpTime());
  for (std::int64_t i = 0; i < LARGEST_KEPT; ++i) {
    const auto number = schedule.SampleNext();
    if (!number)
      return;
    Demand(*number >= 1 && *number <= file.SampleCount(), "a sample that the file does not have");
  }
  Demand(false, "the schedule does not end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  std::string datagram(data, std::min<std::size_t>(size, DATAGRAM_CAPACITY));
  const int length = static_cast<int>(datagram.size());
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, datagram.data(), length, 0};
  Header header;
  if (!HeaderRead(&stream, &header))
    return 0;
  ExitCode reason = ExitCode::OK;
  switch (header.kind) {
  case Kind::HEARTBEAT:
    HeartbeatTry(&stream, header, datagram);
    break;
  case Kind::SAMPLE:
    SampleTry(&stream, header, datagram);
    break;
  case Kind::WINDOW:
    WindowTry(&stream, header, datagram);
    break;
  case Kind::END:
    EndRead(&stream, &reason);
  }
  return 0;
}
