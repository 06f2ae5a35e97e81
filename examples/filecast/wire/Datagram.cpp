#include "wire/Datagram.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::uint32_t MAGIC = 0x56464333;  // "VFC3": the program and the version of its wire form

bool WordWrite(VORNCDRStream* stream, std::uint32_t word) {
  return VornCDR4ByteSerialize(stream, &word) != 0;
}

bool WordRead(VORNCDRStream* stream, std::uint32_t* word) {
  return VornCDR4ByteDeserialize(stream, word) != 0;
}

bool DoubleWordWrite(VORNCDRStream* stream, std::uint64_t value) {
  return WordWrite(stream, static_cast<std::uint32_t>(value >> 32)) &&
         WordWrite(stream, static_cast<std::uint32_t>(value));
}

bool DoubleWordRead(VORNCDRStream* stream, std::uint64_t* value) {
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  if (!WordRead(stream, &high) || !WordRead(stream, &low))
    return false;
  *value = std::uint64_t{high} << 32 | low;
  return true;
}

// None is written as 0 and 0, so that every value has one form only.
bool ChecksumWrite(VORNCDRStream* stream, const std::optional<std::uint64_t>& checksum) {
  return WordWrite(stream, checksum ? 1 : 0) && DoubleWordWrite(stream, checksum.value_or(0));
}

bool ChecksumRead(VORNCDRStream* stream, std::optional<std::uint64_t>* checksum) {
  std::uint32_t isKnown = 0;
  std::uint64_t value = 0;
  if (!WordRead(stream, &isKnown) || isKnown > 1 || !DoubleWordRead(stream, &value))
    return false;
  checksum->reset();
  if (isKnown == 1)
    *checksum = value;
  return isKnown == 1 || value == 0;
}

bool HeaderWrite(VORNCDRStream* stream, const Header& header) {
  return WordWrite(stream, MAGIC) && WordWrite(stream, header.session) &&
         WordWrite(stream, static_cast<std::uint32_t>(header.kind)) &&
         header.time.Serialize(stream) != 0 && header.number.Serialize(stream) != 0;
}

int BytesLeft(const VORNCDRStream* stream) {
  return stream->capacity - VornCDRStreamPositionGet(stream);
}

bool AllWasRead(const VORNCDRStream* stream) { return BytesLeft(stream) == 0; }

bool ReasonWrite(VORNCDRStream* stream, ExitCode reason) {
  return WordWrite(stream, static_cast<std::uint32_t>(reason));
}

bool ReasonRead(VORNCDRStream* stream, ExitCode* reason) {
  std::uint32_t word = 0;
  if (!WordRead(stream, &word) || word >= std::size(EXIT_CODES))
    return false;
  *reason = static_cast<ExitCode>(word);
  return true;
}

bool NameRead(VORNCDRStream* stream, std::string* name) {
  std::uint32_t length = 0;
  if (!WordRead(stream, &length) || length > NAME_CAPACITY)
    return false;
  char bytes[NAME_CAPACITY];
  if (VornCDROctetsDeserialize(stream, bytes, static_cast<int>(length)) == 0)
    return false;
  name->assign(bytes, length);
  return true;
}

}  // namespace

std::int64_t FileDescription::SampleCount() const {
  return static_cast<std::int64_t>((size + sampleSize - 1) / sampleSize);
}

int FileDescription::SampleLength(std::int64_t number) const {
  return static_cast<int>(
      std::min(static_cast<std::uint64_t>(sampleSize), size - SampleOffset(number)));
}

std::uint64_t FileDescription::SampleOffset(std::int64_t number) const {
  return static_cast<std::uint64_t>(number - 1) * sampleSize;
}

std::uint64_t FileDescription::BytesBefore(std::int64_t number) const {
  return std::min(size, SampleOffset(number));
}

bool HeartbeatWrite(VORNCDRStream* stream, const Header& header, const Heartbeat& heartbeat) {
  const FileDescription& file = heartbeat.file;
  const int nameLength = static_cast<int>(file.name.size());
  return HeaderWrite(stream, header) && WordWrite(stream, heartbeat.count) &&
         WordWrite(stream, static_cast<std::uint32_t>(heartbeat.answerPort)) &&
         DoubleWordWrite(stream, file.size) && ChecksumWrite(stream, heartbeat.checksum) &&
         WordWrite(stream, file.sampleSize) &&
         WordWrite(stream, static_cast<std::uint32_t>(nameLength)) &&
         VornCDROctetsSerialize(stream, file.name.data(), nameLength) != 0;
}

bool SampleWrite(VORNCDRStream* stream, const Header& header, const char* bytes, int length) {
  return HeaderWrite(stream, header) && VornCDROctetsSerialize(stream, bytes, length) != 0;
}

bool WindowWrite(VORNCDRStream* stream, const Header& header, const WindowHead& head,
                 const Bitmap& arrived) {
  return HeaderWrite(stream, header) && WordWrite(stream, head.receiver) &&
         WordWrite(stream, head.heartbeat) &&
         WordWrite(stream, static_cast<std::uint32_t>(head.state)) &&
         ReasonWrite(stream, head.reason) && WordWrite(stream, head.arrived) &&
         WordWrite(stream, head.room) && arrived.Serialize(stream) != 0;
}

bool EndWrite(VORNCDRStream* stream, const Header& header, ExitCode reason) {
  return HeaderWrite(stream, header) && ReasonWrite(stream, reason);
}

bool HeaderRead(VORNCDRStream* stream, Header* header) {
  std::uint32_t magic = 0;
  std::uint32_t kind = 0;
  if (!WordRead(stream, &magic) || magic != MAGIC || !WordRead(stream, &header->session) ||
      header->session == 0 || !WordRead(stream, &kind) ||
      kind < static_cast<std::uint32_t>(Kind::HEARTBEAT) ||
      kind > static_cast<std::uint32_t>(Kind::END))
    return false;
  header->kind = static_cast<Kind>(kind);
  return header->time.Deserialize(stream) != 0 && header->number.Deserialize(stream) != 0 &&
         header->number >= SequenceNumber();
}

bool HeartbeatRead(VORNCDRStream* stream, const Header& header, Heartbeat* heartbeat) {
  FileDescription& file = heartbeat->file;
  std::uint32_t port = 0;
  if (!WordRead(stream, &heartbeat->count) || !WordRead(stream, &port) || port == 0 ||
      port > 65535 || !DoubleWordRead(stream, &file.size) || file.size > LARGEST_FILE ||
      !ChecksumRead(stream, &heartbeat->checksum) || !WordRead(stream, &file.sampleSize) ||
      file.sampleSize == 0 || file.sampleSize > SAMPLE_CAPACITY || !NameRead(stream, &file.name))
    return false;
  heartbeat->answerPort = static_cast<int>(port);
  const std::int64_t unsent = file.SampleCount() - header.number.IntegerGet();
  return AllWasRead(stream) && FileNameIsSafe(file.name) &&
         (heartbeat->checksum ? unsent == 0 : unsent >= 0);
}

bool SampleRead(VORNCDRStream* stream, const char** bytes, int* length) {
  *length = BytesLeft(stream);
  if (*length <= 0 || *length > SAMPLE_CAPACITY)
    return false;
  *bytes = stream->buffer + VornCDRStreamPositionGet(stream);
  return true;
}

bool WindowRead(VORNCDRStream* stream, const Header& header, WindowHead* head, Bitmap* arrived) {
  std::uint32_t state = 0;
  if (!WordRead(stream, &head->receiver) || !WordRead(stream, &head->heartbeat) ||
      !WordRead(stream, &state) || state > static_cast<std::uint32_t>(TransferState::FAILED) ||
      !ReasonRead(stream, &head->reason) || !WordRead(stream, &head->arrived) ||
      !WordRead(stream, &head->room) || head->room == 0 || arrived->Deserialize(stream) == 0)
    return false;
  head->state = static_cast<TransferState>(state);
  const bool hasFailed = head->state == TransferState::FAILED;
  return AllWasRead(stream) && hasFailed == (head->reason != ExitCode::OK) &&
         arrived->lead == header.number && arrived->lead > SequenceNumber();
}

bool EndRead(VORNCDRStream* stream, ExitCode* reason) {
  return ReasonRead(stream, reason) && AllWasRead(stream);
}

bool FileNameIsSafe(const std::string& name) {
  return !name.empty() && name.size() <= NAME_CAPACITY && name[0] != '.' &&
         std::none_of(name.begin(), name.end(),
                      [](unsigned char byte) { return byte == '/' || byte < ' ' || byte == 0x7F; });
}
