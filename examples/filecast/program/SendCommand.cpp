#include "program/SendCommand.h"

#include "program/Signals.h"
#include "wire/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

constexpr double PACE_PERIOD = 0.001;
constexpr double HEARTBEAT_PERIOD = 0.02;
constexpr double WATCH_PERIOD = 0.1;
constexpr int SAMPLES_PER_HEARTBEAT = 32;  // well below a window, so that answers overlap sending
constexpr double LARGEST_BURST = 64;       // samples; a receive buffer takes a few of these
constexpr int END_COUNT = 5;

std::uint32_t SessionDraw() {
  std::random_device random;
  return std::max(std::uint32_t{1}, static_cast<std::uint32_t>(random()));
}

}  // namespace

SendCommand::SendCommand(const Options& options, PeerList* peers)
    : _options(options), _progress("sent"), _reader(options.path, options.name),
      _session(SessionDraw()), _schedule(_reader.FileGet()),
      _endpoints(options.group, options.to, options.ttl), _loss(options.drop, options.seed),
      _inbox(&_endpoints.AnswersGet(), peers, nullptr,
             [this](VORNCDRStream* stream, const Header& header, const AddressPort& source) {
               return WindowHandle(stream, header, source);
             }),
      _buffer() {
  _isServed.reserve(SendSchedule::PEER_CAPACITY);
  _pace = &_loop.EventAdd(PACE_PERIOD, [this](const VORNNtpTime& now) { SamplesSend(now); });
  _pace->Disable();
  _heartbeat =
      &_loop.EventAdd(HEARTBEAT_PERIOD, [this](const VORNNtpTime& now) { HeartbeatFired(now); });
  _loop.EventAdd(WATCH_PERIOD, [this](const VORNNtpTime& now) { PeersWatch(now); });
}

ExitCode SendCommand::Run() {
  const FileDescription& file = _schedule.FileGet();
  _progress.Say("sending " + file.name + ", " + MegabytesText(file.size) + ", to " +
                (_options.to.empty() ? AddressPortText(_options.group)
                                     : std::to_string(_options.to.size()) + " addresses"));
  _begin = _sentWell = _loop.NowGet();
  HeartbeatSend(_begin);
  _loop.Run(
      _endpoints.AnswersGet(),
      [this](const VORNNtpTime& now) {
        _now = now;
        _inbox.DatagramsRead();
        RecipientsUpdate();
        PhaseUpdate(now);
      },
      [this] { return _phase == Phase::DONE; });
  if (!IsInterrupted())
    return ResultSay();
  for (int i = 0; i < END_COUNT; ++i)
    EndSend(_loop.NowGet(), false);
  _progress.Clear();
  throw Failure(ExitCode::INTERRUPTED, "interrupted; receivers were told");
}

// Sends as many samples as the time since the last call allows. Time that could not be used is
// lost, so that a stall is not followed by a flood.
void SendCommand::SamplesSend(const VORNNtpTime& now) {
  const double samplesPerSecond = _options.rate * 1e6 / SAMPLE_CAPACITY;
  _credit = std::min(_credit + (now - _paceBefore).SecondsGet() * samplesPerSecond, LARGEST_BURST);
  _paceBefore = now;
  for (; _credit >= 1; _credit -= 1) {
    if (!SampleSend(now)) {
      // All are waiting now, so the receivers are asked at once what they miss.
      if (_sinceHeartbeat > 0)
        HeartbeatSend(now);
      return;
    }
    if (_sinceHeartbeat >= SAMPLES_PER_HEARTBEAT)
      HeartbeatSend(now);
  }
}

bool SendCommand::SampleSend(const VORNNtpTime& now) {
  const std::optional<std::int64_t> number = _schedule.SampleNext();
  if (!number)
    return false;
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  SampleWrite(&stream, HeaderMake(Kind::SAMPLE, *number, now), _reader.SampleGet(*number),
              _schedule.FileGet().SampleLength(*number));
  DatagramSend(&stream, now);
  ++_sampleCount;
  ++_sinceHeartbeat;
  return true;
}

void SendCommand::HeartbeatFired(const VORNNtpTime& now) {
  if (_phase == Phase::ENDING) {
    EndSend(now, true);
    if (++_endsSent == END_COUNT)
      _phase = Phase::DONE;
    return;
  }
  HeartbeatSend(now);
}

void SendCommand::HeartbeatSend(const VORNNtpTime& now) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  HeartbeatWrite(&stream, HeaderMake(Kind::HEARTBEAT, _schedule.HighestGet(), now),
                 _schedule.HeartbeatNext(_endpoints.AnswerPortGet()));
  DatagramSend(&stream, now);
  _sinceHeartbeat = 0;
  _heartbeat->Enable(now);
}

void SendCommand::EndSend(const VORNNtpTime& now, bool complete) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  EndWrite(&stream, HeaderMake(Kind::END, _schedule.HighestGet(), now), complete);
  DatagramSend(&stream, now);
}

// A datagram that the system does not take is as good as lost, and is repaired like one. There is
// no point in going on only when nothing at all goes out.
void SendCommand::DatagramSend(VORNCDRStream* stream, const VORNNtpTime& now) {
  if (_loss.LosesNext())
    return;
  if (_endpoints.Send(stream))
    _sentWell = now;
  else if (errno != EINTR && now - _sentWell > VORNNtpTime::FromSeconds(_options.patience))
    throw Failure(ExitCode::NETWORK_FAILED, std::string("cannot send: ") + std::strerror(errno));
}

Header SendCommand::HeaderMake(Kind kind, std::int64_t number, const VORNNtpTime& now) const {
  Header header;
  header.session = _session;
  header.kind = kind;
  header.time = now;
  header.number = SequenceNumber::FromInteger(number);
  return header;
}

Inbox::Verdict SendCommand::WindowHandle(VORNCDRStream* stream, const Header& header,
                                         const AddressPort& source) {
  if (header.kind != Kind::WINDOW || header.session != _session)
    return Inbox::Verdict::FOREIGN;
  WindowHead head;
  if (!WindowRead(stream, header, &head, &_window) ||
      !_schedule.WindowApply(head, _window, source, _now))
    return Inbox::Verdict::GARBLED;
  // The time should be our own, brought back, but a receiver can write anything there.
  if (header.time >= _begin && header.time <= _now)
    _slowestAnswer = std::max(_slowestAnswer, _now - header.time);
  return Inbox::Verdict::TAKEN;
}

void SendCommand::PeersWatch(const VORNNtpTime& now) {
  _schedule.LostPeersFind(now, VORNNtpTime::FromSeconds(_options.patience));
  RecipientsUpdate();
  PhaseUpdate(now);
  if (_phase == Phase::SENDING)
    _progress.Show(static_cast<std::uint64_t>(_schedule.HighestGet()),
                   static_cast<std::uint64_t>(_schedule.FileGet().SampleCount()));
}

// A receiver is a recipient as long as it needs data and answers.
void SendCommand::RecipientsUpdate() {
  const std::vector<SendSchedule::Peer>& peers = _schedule.PeersGet();
  _isServed.resize(peers.size(), false);
  for (std::size_t i = 0; i < peers.size(); ++i) {
    const SendSchedule::Peer& peer = peers[i];
    const bool isServed = !peer.lost && peer.state == TransferState::RECEIVING;
    if (isServed == _isServed[i])
      continue;
    _isServed[i] = isServed;
    if (isServed)
      _recipients.Declare(peer.place);
    else
      _recipients.Withdraw(peer.place);
    _progress.Say("receiver " + AddressPortText(peer.place) +
                  (isServed                                ? " joined"
                   : peer.state == TransferState::COMPLETE ? " has the file"
                   : peer.state == TransferState::FAILED   ? " failed"
                                                           : " is lost: it fell silent") +
                  "; " + std::to_string(_recipients.CountGet()) + " receiving");
  }
}

void SendCommand::PhaseUpdate(const VORNNtpTime& now) {
  const int known = static_cast<int>(_schedule.PeersGet().size());
  if (_phase == Phase::GATHERING) {
    const bool waitIsOver = now - _begin > VORNNtpTime::FromSeconds(_options.wait);
    if (known == 0 && waitIsOver)
      throw Failure(ExitCode::RECEIVERS_MISSING, "no receiver answered");
    if (known < _options.receivers && !waitIsOver)
      return;
    _phase = Phase::SENDING;
    _begin = _paceBefore = now;
    _pace->Enable(now);
  } else if (_phase == Phase::SENDING && _recipients.CountGet() == 0) {
    _phase = Phase::ENDING;
    _pace->Disable();
    EndSend(now, true);
    _heartbeat->Enable(now);
  }
}

ExitCode SendCommand::ResultSay() {
  const int known = static_cast<int>(_schedule.PeersGet().size());
  const int complete = _schedule.CountIn(TransferState::COMPLETE);
  const double seconds = (_loop.NowGet() - _begin).SecondsGet() - END_COUNT * HEARTBEAT_PERIOD;
  const Inbox::Counts& counts = _inbox.CountsGet();
  char text[400];
  std::snprintf(text, sizeof text,
                "%s; %llu samples, of them %llu repairs (%.1f %%); slowest answer %.1f ms",
                ThroughputText(_schedule.FileGet().size, seconds).c_str(),
                static_cast<unsigned long long>(_sampleCount),
                static_cast<unsigned long long>(_schedule.RepairsGet()),
                _sampleCount == 0 ? 0.0
                                  : 100.0 * static_cast<double>(_schedule.RepairsGet()) /
                                        static_cast<double>(_sampleCount),
                1000 * _slowestAnswer.SecondsGet());
  _progress.Say(text);
  std::snprintf(text, sizeof text,
                "receivers: %d complete, %d failed, %d lost; windows: %llu taken, %llu refused, "
                "%llu garbled, %llu foreign; dropped on purpose: %llu",
                complete, _schedule.CountIn(TransferState::FAILED), _schedule.LostCount(),
                static_cast<unsigned long long>(counts.taken),
                static_cast<unsigned long long>(counts.refused),
                static_cast<unsigned long long>(counts.garbled),
                static_cast<unsigned long long>(counts.foreign),
                static_cast<unsigned long long>(_loss.LostGet()));
  _progress.Say(text);
  if (known < _options.receivers)
    throw Failure(ExitCode::RECEIVERS_MISSING, std::to_string(known) + " receivers answered, " +
                                                   std::to_string(_options.receivers) +
                                                   " were expected");
  if (complete < known)
    throw Failure(ExitCode::RECEIVERS_LOST,
                  std::to_string(known - complete) + " receivers do not have the file");
  return ExitCode::OK;
}
