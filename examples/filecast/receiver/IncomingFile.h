#ifndef FILECAST_RECEIVER_INCOMING_FILE_H
#define FILECAST_RECEIVER_INCOMING_FILE_H

#include "receiver/PartialFile.h"
#include "receiver/ReceiveWindow.h"
#include "wire/Addresses.h"
#include "wire/Failure.h"

#include <memory>
#include <optional>

/// One sender's file at one receiver: the window joined to the file on the disk.
class IncomingFile {
public:
  /// Nothing here throws a `Failure`: a file that cannot be made or written has failed.
  IncomingFile(std::uint32_t session, const FileDescription& file, unsigned int sender, int folder,
               const std::string& id, const VORNNtpTime& now);

  std::uint32_t SessionGet() const { return _session; }
  unsigned int SenderGet() const { return _sender; }
  const ReceiveWindow& WindowGet() const { return _window; }
  TransferState StateGet() const { return _state; }
  /// Sample datagrams that came; wraps.
  std::uint32_t ArrivalsGet() const { return _arrivals; }
  /// Why it failed; none while it has not.
  const std::optional<Failure>& FailureGet() const { return _failure; }
  /// Bytes that are there without a gap, from the first one.
  std::uint64_t BytesGet() const;
  /// Seconds that the transfer took, until it was complete or failed.
  double SecondsGet() const;
  /// Whether nothing more is to be told to the sender.
  bool IsOver() const { return _isOver; }

  /// Counts a sample, and stores it if it is missing.
  void SampleAdd(const SequenceNumber& number, const char* bytes, int length,
                 const VORNNtpTime& now);
  /// Learns the file's checksum. Without it, a file that is all there is not whole.
  void ChecksumNote(std::uint64_t checksum, const VORNNtpTime& now);
  /// Whether a heartbeat describes this file.
  bool FileIs(const FileDescription& file) const;
  /// Stores in `window` the answer to a heartbeat: what has arrived, up to `highest`.
  void HeartbeatAnswer(const SequenceNumber& highest, const VORNNtpTime& now, Bitmap* window);
  /// The sender said its end, and why: `OK` when it has said all.
  void EndNote(ExitCode reason, const VORNNtpTime& now);
  /// Gives the file up, because a signal ends the program.
  void Interrupt(const VORNNtpTime& now);
  /// Gives up after a silence of `patience`, and ends what is only waiting for the sender's end.
  void SilenceCheck(const VORNNtpTime& now, const VORNNtpTime& patience);

private:
  void Fail(const Failure& failure, const VORNNtpTime& now);
  void WholeCheck(const VORNNtpTime& now);

  std::uint32_t _session;
  ReceiveWindow _window;
  unsigned int _sender;
  TransferState _state = TransferState::RECEIVING;
  std::unique_ptr<PartialFile> _file;
  std::optional<std::uint64_t> _checksum;
  std::optional<Failure> _failure;
  VORNNtpTime _begin;
  VORNNtpTime _heard;
  VORNNtpTime _end;
  std::uint32_t _arrivals = 0;
  int _finalAnswers = 0;  ///< windows that told the final state
  bool _isOver = false;
};

#endif
