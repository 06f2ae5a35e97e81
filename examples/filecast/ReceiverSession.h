#ifndef FILECAST_RECEIVER_SESSION_H
#define FILECAST_RECEIVER_SESSION_H

#include "Addresses.h"
#include "ExitCode.h"
#include "PartialFile.h"
#include "ReceiverLogic.h"

#include <memory>
#include <optional>

/// One sender's file at one receiver: the logic joined to the file on the disk.
class ReceiverSession {
public:
  /// Never throws a `Failure`: a session whose file cannot be made has failed from the start.
  ReceiverSession(std::uint32_t session, const FileDescription& file, unsigned int sender,
                  int folder, const std::string& id, const VORNNtpTime& now);

  std::uint32_t IdGet() const { return _logic.SessionGet(); }
  unsigned int SenderGet() const { return _sender; }
  const ReceiverLogic& LogicGet() const { return _logic; }
  ReceiverState StateGet() const { return _state; }
  /// Why it failed; none while it has not.
  const std::optional<Failure>& FailureGet() const { return _failure; }
  /// Seconds that the transfer took, until it was complete or failed.
  double SecondsGet() const;
  /// Whether nothing more is to be told to the sender.
  bool IsOver() const { return _isOver; }

  void SampleTake(const SequenceNumber& number, const char* bytes, int length,
                  const VORNNtpTime& now);
  /// Whether a heartbeat describes the file that this session is about.
  bool FileIs(const FileDescription& file) const;
  /// Notes a heartbeat that is being answered, and writes the window up to `highest`.
  void HeartbeatTake(const SequenceNumber& highest, const VORNNtpTime& now, Bitmap* window);
  void EndTake(const VORNNtpTime& now);
  /// Gives up after a silence of `patience`, and ends what is only waiting for the sender's end.
  void SilenceCheck(const VORNNtpTime& now, const VORNNtpTime& patience);
  /// Removes the partial file.
  void Fail(const Failure& failure, const VORNNtpTime& now);

private:
  void WholeCheck(const VORNNtpTime& now);

  ReceiverLogic _logic;
  unsigned int _sender;
  ReceiverState _state = ReceiverState::RECEIVING;
  std::unique_ptr<PartialFile> _file;
  std::optional<Failure> _failure;
  VORNNtpTime _begin;
  VORNNtpTime _heard;
  VORNNtpTime _end;
  int _finalAnswers = 0;  ///< windows that told the final state
  bool _isOver = false;
};

#endif
