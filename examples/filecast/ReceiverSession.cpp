#include "ReceiverSession.h"

#include "Duration.h"

namespace {

// So often is the final state told before the sender's end is no longer waited for.
constexpr int FINAL_ANSWERS = 25;

}  // namespace

ReceiverSession::ReceiverSession(std::uint32_t session, const FileDescription& file,
                                 unsigned int sender, int folder, const std::string& id,
                                 const VORNNtpTime& now)
    : _logic(file, session), _sender(sender), _begin(now), _heard(now), _end(now) {
  try {
    _file = std::make_unique<PartialFile>(folder, file, id);
    WholeCheck(now);  // an empty file is
  } catch (const Failure& failure) {
    Fail(failure, now);
  }
}

double ReceiverSession::SecondsGet() const { return SecondsOf(_end - _begin); }

void ReceiverSession::SampleTake(const SequenceNumber& number, const char* bytes, int length,
                                 const VORNNtpTime& now) {
  _heard = now;
  if (_state != ReceiverState::RECEIVING || !_logic.SampleIsWanted(number, length))
    return;
  try {
    _file->SampleStore(NumberOf(number), bytes, length);
    _logic.SampleStored(number);
    _file->LeadMove(_logic.LeadGet());
    WholeCheck(now);
  } catch (const Failure& failure) {
    Fail(failure, now);
  }
}

void ReceiverSession::WholeCheck(const VORNNtpTime& now) {
  if (!_logic.IsWhole())
    return;
  _file->Finish();
  _file.reset();
  _state = ReceiverState::COMPLETE;
  _end = now;
}

bool ReceiverSession::FileIs(const FileDescription& file) const {
  const FileDescription& own = _logic.FileGet();
  return own.size == file.size && own.checksum == file.checksum &&
         own.sampleSize == file.sampleSize && own.name == file.name;
}

void ReceiverSession::HeartbeatTake(const SequenceNumber& highest, const VORNNtpTime& now,
                                    Bitmap* window) {
  _heard = now;
  _logic.WindowGet(highest, window);
  if (_state != ReceiverState::RECEIVING && ++_finalAnswers >= FINAL_ANSWERS)
    _isOver = true;
}

void ReceiverSession::EndTake(const VORNNtpTime& now) {
  if (_state == ReceiverState::RECEIVING)
    Fail(Failure(ExitCode::SENDER_ENDED,
                 _logic.FileGet().name + ": the sender ended before the file was whole"),
         now);
  _isOver = true;
}

void ReceiverSession::SilenceCheck(const VORNNtpTime& now, const VORNNtpTime& patience) {
  if (now - _heard <= patience)
    return;
  if (_state == ReceiverState::RECEIVING)
    Fail(Failure(ExitCode::SENDER_SILENT, _logic.FileGet().name + ": the sender fell silent"), now);
  _isOver = true;
}

void ReceiverSession::Fail(const Failure& failure, const VORNNtpTime& now) {
  _file.reset();
  _state = ReceiverState::FAILED;
  _failure = failure;
  _end = now;
}
