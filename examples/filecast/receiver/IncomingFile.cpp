#include "receiver/IncomingFile.h"

namespace {

// So often is the final state told before the sender's end is no longer waited for.
constexpr int FINAL_ANSWERS = 25;

std::string EndText(ExitCode reason) {
  if (reason == ExitCode::OK)
    return ": the sender ended before the file was whole";
  if (reason == ExitCode::INTERRUPTED)
    return ": the sender was interrupted";
  return std::string(": the sender gave up: ") + ExitCodeMeaning(reason);
}

}  // namespace

IncomingFile::IncomingFile(std::uint32_t session, const FileDescription& file, unsigned int sender,
                           int folder, const std::string& id, const VORNNtpTime& now)
    : _session(session), _window(file), _sender(sender), _begin(now), _heard(now), _end(now) {
  try {
    _file = std::make_unique<PartialFile>(folder, file, id);
  } catch (const Failure& failure) {
    Fail(failure, now);
  }
}

std::uint64_t IncomingFile::BytesGet() const {
  return _window.FileGet().BytesBefore(_window.LeadGet());
}

double IncomingFile::SecondsGet() const { return (_end - _begin).SecondsGet(); }

void IncomingFile::SampleAdd(const SequenceNumber& number, const char* bytes, int length,
                             const VORNNtpTime& now) {
  _heard = now;
  ++_arrivals;
  if (_state != TransferState::RECEIVING || !_window.SampleIsWanted(number, length))
    return;
  try {
    _file->SampleStore(number.IntegerGet(), bytes, length);
    _window.SampleStored(number);
    _file->LeadMove(_window.LeadGet());
    WholeCheck(now);
  } catch (const Failure& failure) {
    Fail(failure, now);
  }
}

void IncomingFile::WholeCheck(const VORNNtpTime& now) {
  if (!_window.IsWhole() || !_checksum)
    return;
  _file->Finish(*_checksum);
  _file.reset();
  _state = TransferState::COMPLETE;
  _end = now;
}

void IncomingFile::ChecksumNote(std::uint64_t checksum, const VORNNtpTime& now) {
  if (_state != TransferState::RECEIVING)
    return;
  _checksum = checksum;
  try {
    WholeCheck(now);
  } catch (const Failure& failure) {
    Fail(failure, now);
  }
}

bool IncomingFile::FileIs(const FileDescription& file) const {
  const FileDescription& own = _window.FileGet();
  return own.size == file.size && own.sampleSize == file.sampleSize && own.name == file.name;
}

void IncomingFile::HeartbeatAnswer(const SequenceNumber& highest, const VORNNtpTime& now,
                                   Bitmap* window) {
  _heard = now;
  _window.ArrivedGet(highest, window);
  if (_state != TransferState::RECEIVING && ++_finalAnswers >= FINAL_ANSWERS)
    _isOver = true;
}

void IncomingFile::EndNote(ExitCode reason, const VORNNtpTime& now) {
  if (_state == TransferState::RECEIVING)
    Fail(Failure(ExitCode::SENDER_ENDED, _window.FileGet().name + EndText(reason)), now);
  _isOver = true;
}

void IncomingFile::Interrupt(const VORNNtpTime& now) {
  if (_state == TransferState::RECEIVING)
    Fail(Failure(ExitCode::INTERRUPTED, _window.FileGet().name + ": interrupted"), now);
}

void IncomingFile::SilenceCheck(const VORNNtpTime& now, const VORNNtpTime& patience) {
  if (now - _heard <= patience)
    return;
  if (_state == TransferState::RECEIVING)
    Fail(Failure(ExitCode::SENDER_SILENT, _window.FileGet().name + ": the sender fell silent"),
         now);
  _isOver = true;
}

void IncomingFile::Fail(const Failure& failure, const VORNNtpTime& now) {
  _file.reset();
  _state = TransferState::FAILED;
  _failure = failure;
  _end = now;
}
