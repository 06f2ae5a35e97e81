#ifndef FILECAST_PROGRAM_SEND_COMMAND_H
#define FILECAST_PROGRAM_SEND_COMMAND_H

#include "program/EventLoop.h"
#include "program/Options.h"
#include "program/Progress.h"
#include "sender/Recipients.h"
#include "sender/SampleReader.h"
#include "sender/SendRate.h"
#include "sender/SendSchedule.h"
#include "wire/Endpoints.h"
#include "wire/ExitCode.h"
#include "wire/Inbox.h"

#include <vector>

/// `filecast send`: joins the schedule to sockets, file, clock and user.
///
/// It gathers receivers by heartbeats, sends as fast as they and the network take it, and says the
/// end a few times. Three
/// timers drive it: the pace, the heartbeat and the watch over receivers that fall silent.
class SendCommand {
public:
  SendCommand(const Options& options, PeerList* peers);
  /// Sends the file. Throws a `Failure` when that is not possible.
  ExitCode Run();

private:
  enum class Phase { GATHERING, SENDING, ENDING, DONE };
  /// What the user was told of a receiver. One that is served is declared as a recipient.
  enum class Standing { UNKNOWN, SERVED, OUT };

  // Called by the loop: by its timers, and with a datagram.
  void SamplesSend(const VORNNtpTime& now);
  void HeartbeatFired(const VORNNtpTime& now);
  void PeersWatch(const VORNNtpTime& now);
  Inbox::Verdict WindowHandle(VORNCDRStream* stream, const Header& header,
                              const AddressPort& source);

  bool SampleSend(const VORNNtpTime& now);
  void MissingAsk(const VORNNtpTime& now);
  void RateUpdate(const VORNNtpTime& now);
  void HeartbeatSend(const VORNNtpTime& now);
  void LoopRun();
  void EndSend(const VORNNtpTime& now, ExitCode reason);
  void EndsSend(ExitCode reason);
  void DatagramSend(VORNCDRStream* stream, const VORNNtpTime& now);
  Header HeaderMake(Kind kind, std::int64_t number, const VORNNtpTime& now) const;

  void PhaseUpdate(const VORNNtpTime& now);
  void RecipientsUpdate();
  void PeerSay(const SendSchedule::Peer& peer);
  std::uint64_t CarriedGet() const;
  void CountsSay();
  ExitCode ResultSay();

  Options _options;
  Progress _progress;
  EventLoop _loop;
  SampleReader _reader;
  std::uint32_t _session;
  SendSchedule _schedule;
  SendRate _rate;
  SendEndpoints _endpoints;
  LossGenerator _loss;  ///< of what is sent
  Inbox _inbox;
  Bitmap _window{0, SequenceNumber(), 0};  ///< the one last received
  Recipients _recipients;
  std::vector<Standing> _standings;  ///< parallel to the schedule's peers

  Phase _phase = Phase::GATHERING;
  ActionEvent* _pace = nullptr;
  ActionEvent* _heartbeat = nullptr;
  VORNNtpTime _now;       ///< when the loop last called
  VORNNtpTime _begin;     ///< of the gathering, then of the sending
  VORNNtpTime _end;       ///< of the sending
  VORNNtpTime _sentWell;  ///< when the system last took a datagram
  VORNNtpTime _slowestAnswer;
  VORNNtpTime _asked;       ///< when the last heartbeat went out
  double _askPause = 0;     ///< seconds until one is repeated that nobody answers
  int _sinceHeartbeat = 0;  ///< samples sent
  int _endsSent = 0;
  char _buffer[DATAGRAM_CAPACITY];
};

#endif
