// Datagrams of filecast: what a reader accepts is told back byte for byte by the writer, and no
// datagram that is accepted can lead the sender's schedule or the receiver's window out of a file.

#include "Demand.h"
#include "filecast/Reading.h"
#include "receiver/ReceiveWindow.h"
#include "sender/SendSchedule.h"

#include <algorithm>

namespace {

const FileDescription FILE_SMALL{100 * SAMPLE_CAPACITY - 7, SAMPLE_CAPACITY, "file"};

void HeartbeatTry(const Reading& reading) {
  const FileDescription& file = reading.heartbeat.file;
  const std::int64_t last = file.SampleCount();
  Demand(last >= 0 && FileNameIsSafe(file.name), "a file that cannot be");
  if (last == 0)
    return;
  Demand(file.SampleOffset(last) + static_cast<unsigned>(file.SampleLength(last)) == file.size,
         "the last sample does not end with the file");
  ReceiveWindow window(file);
  for (const std::int64_t number : {reading.header.number.IntegerGet(), std::int64_t{1}, last}) {
    const SequenceNumber sn = SequenceNumber::FromInteger(number);
    if (number > 0 && window.SampleIsWanted(sn, file.SampleLength(number)))
      window.SampleStored(sn);
  }
  Demand(window.LeadGet() > 1, "the first sample has come and is still missing");
}

void SampleTry(const Reading& reading) {
  ReceiveWindow window(FILE_SMALL);
  const SequenceNumber& number = reading.header.number;
  const bool isWanted = window.SampleIsWanted(number, reading.length);
  Demand(!isWanted || number.IntegerGet() <= Bitmap::CAPACITY, "a sample beyond the window");
}

void WindowTry(const Reading& reading) {
  SendSchedule schedule(FILE_SMALL);
  for (int i = 0; i < 50; ++i)
    schedule.SampleNext();
  schedule.HeartbeatNext({});
  schedule.WindowApply(reading.head, reading.arrived, {1, 2}, VORNNtpTime());
  for (int i = 0; i < 1000; ++i) {
    const auto number = schedule.SampleNext();
    if (!number)
      return;
    Demand(*number >= 1 && *number <= FILE_SMALL.SampleCount(),
           "a sample that the file does not have");
  }
  Demand(false, "the schedule does not end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  const Reading reading(std::string(data, std::min<std::size_t>(size, DATAGRAM_CAPACITY)));
  if (!reading.isGood)
    return 0;
  Demand(reading.Again() == reading.bytes, "a datagram is told back otherwise");
  if (reading.header.kind == Kind::HEARTBEAT)
    HeartbeatTry(reading);
  else if (reading.header.kind == Kind::SAMPLE)
    SampleTry(reading);
  else if (reading.header.kind == Kind::WINDOW)
    WindowTry(reading);
  return 0;
}
