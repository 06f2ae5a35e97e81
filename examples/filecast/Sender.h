#ifndef FILECAST_SENDER_H
#define FILECAST_SENDER_H

#include "Endpoints.h"
#include "EventLoop.h"
#include "ExitCode.h"
#include "Inbox.h"
#include "Progress.h"
#include "Recipients.h"
#include "SampleReader.h"
#include "SenderLogic.h"

#include <memory>
#include <optional>
#include <vector>

/// `filecast send`: joins the logic to sockets, file, clock and user.
///
/// It gathers receivers by heartbeats, sends at an even pace, and says the end a few times. Three
/// timers drive it: the pace, the heartbeat and the watch over receivers that fall silent.
class Sender {
public:
  Sender(const Options& options, Peers* peers);
  /// Sends the file. Throws a `Failure` when that is not possible.
  ExitCode Run();

private:
  enum class Phase { GATHERING, SENDING, ENDING, DONE };

  void PaceTake(const VORNNtpTime& now);
  void HeartbeatTake(const VORNNtpTime& now);
  void WatchTake(const VORNNtpTime& now);
  Inbox::Verdict WindowTake(VORNCDRStream* stream, const Header& header, const AddressPort& source);

  bool SampleSend(const VORNNtpTime& now);
  void HeartbeatSend(const VORNNtpTime& now);
  void EndSend(const VORNNtpTime& now, bool complete);
  void DatagramSend(VORNCDRStream* stream, const VORNNtpTime& now);
  Header HeaderMake(Kind kind, std::int64_t number, const VORNNtpTime& now) const;

  void PhaseCheck(const VORNNtpTime& now);
  void ReceiversCheck();
  ExitCode ResultSay();

  Options _options;
  Progress _progress;
  EventLoop _loop;
  SampleReader _reader;
  SenderLogic _logic;
  SenderEndpoints _endpoints;
  LossGenerator _loss;    ///< for what is sent
  LossGenerator _noLoss;  ///< for what is received
  Inbox _inbox;
  Bitmap _window{0, SequenceNumber(), 0};  ///< the one last received
  Recipients _recipients;
  std::vector<bool> _isServed;  ///< parallel to the logic's receivers: declared as a recipient

  Phase _phase = Phase::GATHERING;
  ActionEvent* _pace = nullptr;
  ActionEvent* _heartbeat = nullptr;
  VORNNtpTime _now;    ///< when the loop last called
  VORNNtpTime _begin;  ///< of the gathering, then of the sending
  VORNNtpTime _paceBefore;
  VORNNtpTime _sentWell;  ///< when the system last took a datagram
  VORNNtpTime _slowestAnswer;
  double _credit = 0;       ///< samples that the pace allows by now
  int _sinceHeartbeat = 0;  ///< samples sent
  int _endsSent = 0;
  std::uint64_t _sampleCount = 0;
  char _buffer[DATAGRAM_CAPACITY];
};

#endif
