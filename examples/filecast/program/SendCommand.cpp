#include "program/SendCommand.h"

#include "program/Signals.h"
#include "wire/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <utility>

namespace {

constexpr double PACE_PERIOD = 0.001;
constexpr double HEARTBEAT_PERIOD = 0.02;
constexpr double WATCH_PERIOD = 0.1;
constexpr int SAMPLES_PER_HEARTBEAT = 32;  // well below a window, so that answers overlap sending
constexpr double SHORTEST_ASK_PAUSE = 0.002;
constexpr int END_COUNT = 5;

std::uint32_t SessionDraw() {
  std::random_device random;
  return std::max(std::uint32_t{1}, static_cast<std::uint32_t>(random()));
}

}  // namespace

SendCommand::SendCommand(const Options& options, PeerList* peers)
    : _options(options), _progress("sent"), _reader(options.path, options.name),
      _session(SessionDraw()), _schedule(_reader.FileGet()),
      _rate(options.rate * 1e6 / SAMPLE_CAPACITY),
      _endpoints(options.group, options.to, options.ttl), _loss(options.drop, options.seed),
      _inbox(&_endpoints.AnswersGet(), peers, nullptr,
             [this](VORNCDRStream* stream, const Header& header, const AddressPort& source) {
               return WindowHandle(stream, header, source);
             }),
      _buffer() {
  _standings.reserve(SendSchedule::PEER_CAPACITY);
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
                                     : CountText(_options.to.size(), "address", "addresses")));
  _begin = _sentWell = _loop.NowGet();
  HeartbeatSend(_begin);
  try {
    LoopRun();
  } catch (const Failure& failure) {
    EndsSend(failure.code);
    throw;
  }
  if (!IsInterrupted())
    return ResultSay();
  EndsSend(ExitCode::INTERRUPTED);
  throw Failure(ExitCode::INTERRUPTED, "interrupted; receivers were told");
}

void SendCommand::LoopRun() {
  _loop.Run(
      _endpoints.AnswersGet(),
      [this](const VORNNtpTime& now) {
        _now = now;
        _inbox.DatagramsRead();
        RecipientsUpdate();
        PhaseUpdate(now);
        RateUpdate(now);
      },
      [this] { return _phase == Phase::DONE; });
}

// Sends what the rate allows, in pieces, so that answers are read in between.
void SendCommand::SamplesSend(const VORNNtpTime& now) {
  _rate.TimePass(now);
  for (int i = 0; i < SAMPLES_PER_HEARTBEAT && _rate.HasCredit(); ++i) {
    if (!SampleSend(now))
      return MissingAsk(now);
    _rate.CreditUse();
    if (_sinceHeartbeat >= SAMPLES_PER_HEARTBEAT)
      HeartbeatSend(now);
  }
  if (_rate.HasCredit())
    _pace->Hurry(now);
}

// All are waiting now, so the receivers are asked at once what they miss. Question and answer can
// be lost, and then nothing moves before the next one. So it is repeated soon, but ever more
// seldom.
void SendCommand::MissingAsk(const VORNNtpTime& now) {
  const bool isOverdue = (now - _asked).SecondsGet() > _askPause;
  if (_sinceHeartbeat == 0 && !isOverdue)
    return;
  if (_sinceHeartbeat == 0)
    _askPause = std::min(2 * _askPause, HEARTBEAT_PERIOD);
  HeartbeatSend(now);
}

void SendCommand::RateUpdate(const VORNNtpTime& now) {
  if (_phase != Phase::SENDING)
    return;
  _pace->Hurry(now);  // an answer may have made room
  const std::optional<Round> round = _schedule.RoundGet();
  if (round && _rate.RoundNote(*round))
    _schedule.RoundBegin();
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
  ++_sinceHeartbeat;
  return true;
}

void SendCommand::HeartbeatFired(const VORNNtpTime& now) {
  if (_phase == Phase::ENDING) {
    EndSend(now, ExitCode::OK);
    if (++_endsSent == END_COUNT)
      _phase = Phase::DONE;
    return;
  }
  HeartbeatSend(now);
}

void SendCommand::HeartbeatSend(const VORNNtpTime& now) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  Heartbeat heartbeat = _schedule.HeartbeatNext(now);
  heartbeat.answerPort = _endpoints.AnswerPortGet();
  heartbeat.checksum = _reader.ChecksumGet();
  HeartbeatWrite(&stream, HeaderMake(Kind::HEARTBEAT, _schedule.HighestGet(), now), heartbeat);
  DatagramSend(&stream, now);
  _sinceHeartbeat = 0;
  _asked = now;
  _heartbeat->Enable(now);
}

void SendCommand::EndSend(const VORNNtpTime& now, ExitCode reason) {
  VORNCDRStream stream;
  VornCDRStreamInitialize(&stream, _buffer, sizeof _buffer, VORN_CDR_BIG_ENDIAN);
  EndWrite(&stream, HeaderMake(Kind::END, _schedule.HighestGet(), now), reason);
  DatagramSend(&stream, now);
}

// Tells the receivers that it stops before they have all. They are not left to wait.
void SendCommand::EndsSend(ExitCode reason) {
  _progress.Clear();
  const VORNNtpTime now = _sentWell = _loop.NowGet();  // what fails from now on is no news
  for (int i = 0; i < END_COUNT; ++i)
    EndSend(now, reason);
}

// A datagram that the system does not take is as good as lost, and is repaired like one. There is
// no point in going on only when nothing at all goes out.
void SendCommand::DatagramSend(VORNCDRStream* stream, const VORNNtpTime& now) {
  if (_loss.LosesNext())
    return;
  if (_endpoints.Send(stream))
    _sentWell = now;
  else if (errno != EINTR && now - _sentWell > VORNNtpTime::FromSeconds(_options.patience))
    throw Failure(ExitCode::NETWORK_FAILED,
                  std::string(_options.to.empty() ? "--group" : "--to") + ": cannot send to " +
                      AddressPortText(_options.to.empty() ? _options.group : _options.to.back()) +
                      ": " + std::strerror(errno));
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
  if (header.time >= _begin && header.time <= _now) {
    _slowestAnswer = std::max(_slowestAnswer, _now - header.time);
    _rate.AnswerNote((_now - header.time).SecondsGet());
  }
  _askPause = std::max(SHORTEST_ASK_PAUSE, 2 * _rate.RoundTripGet());
  return Inbox::Verdict::TAKEN;
}

void SendCommand::PeersWatch(const VORNNtpTime& now) {
  _schedule.LostPeersFind(now, VORNNtpTime::FromSeconds(_options.patience));
  RecipientsUpdate();
  PhaseUpdate(now);
  if (_phase == Phase::SENDING)
    _progress.Show(_schedule.FileGet().name,
                   _schedule.FileGet().BytesBefore(_schedule.HighestGet() + 1),
                   _schedule.FileGet().size, now.SecondsGet());
}

// A receiver is a recipient as long as it needs data and answers.
void SendCommand::RecipientsUpdate() {
  const std::vector<SendSchedule::Peer>& peers = _schedule.PeersGet();
  _standings.resize(peers.size(), Standing::UNKNOWN);
  for (std::size_t i = 0; i < peers.size(); ++i) {
    const SendSchedule::Peer& peer = peers[i];
    const bool isServed = peer.IsServed();
    const Standing standing = isServed ? Standing::SERVED : Standing::OUT;
    const Standing before = std::exchange(_standings[i], standing);
    if (before == standing)
      continue;
    if (isServed)
      _recipients.Declare(peer.place);
    else if (before == Standing::SERVED)
      _recipients.Withdraw(peer.place);
    PeerSay(peer);
  }
}

void SendCommand::PeerSay(const SendSchedule::Peer& peer) {
  std::string text = " joined";
  if (peer.state == TransferState::COMPLETE)
    text = " has the file";
  else if (peer.state == TransferState::FAILED)
    text = std::string(" failed: ") + ExitCodeMeaning(peer.reason);
  else if (peer.lost)
    text = " is lost: it fell silent";
  _progress.Say("receiver " + AddressPortText(peer.place) + text + "; " +
                std::to_string(_recipients.CountGet()) + " receiving");
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
    _begin = now;
    _rate.Begin(now);
    _schedule.RoundBegin();
    _pace->Enable(now);
  }
  // Right after the gathering, too: when all have refused the file, no sample is sent.
  if (_phase == Phase::SENDING && _recipients.CountGet() == 0) {
    _phase = Phase::ENDING;
    _end = now;
    _pace->Disable();
    EndSend(now, ExitCode::OK);
    _heartbeat->Enable(now);
  }
}

// Bytes that came to the one receiver that has most of them.
std::uint64_t SendCommand::CarriedGet() const {
  std::int64_t lead = 1;
  for (const SendSchedule::Peer& peer : _schedule.PeersGet())
    lead = std::max(lead, peer.lead);
  return _schedule.FileGet().BytesBefore(lead);
}

void SendCommand::CountsSay() {
  const Inbox::Counts& counts = _inbox.CountsGet();
  char text[400];
  const std::uint64_t repairs = _schedule.RepairsGet();
  const double share = static_cast<double>(repairs) /
                       static_cast<double>(std::max<std::uint64_t>(_schedule.SentGet(), 1));
  std::snprintf(text, sizeof text, "%s; %s, of them %s (%.1f %%); slowest answer %.1f ms",
                ThroughputText(CarriedGet(), (_end - _begin).SecondsGet()).c_str(),
                CountText(_schedule.SentGet(), "sample").c_str(),
                CountText(repairs, "repair").c_str(), 100 * share,
                1000 * _slowestAnswer.SecondsGet());
  _progress.Say(text);
  std::snprintf(text, sizeof text,
                "receivers: %d complete, %d failed, %d lost; windows: %llu taken, %llu refused, "
                "%llu garbled, %llu foreign; dropped on purpose: %llu",
                _schedule.CountIn(TransferState::COMPLETE),
                _schedule.CountIn(TransferState::FAILED), _schedule.LostCount(),
                static_cast<unsigned long long>(counts.taken),
                static_cast<unsigned long long>(counts.refused),
                static_cast<unsigned long long>(counts.garbled),
                static_cast<unsigned long long>(counts.foreign),
                static_cast<unsigned long long>(_loss.LostGet()));
  _progress.Say(text);
}

ExitCode SendCommand::ResultSay() {
  CountsSay();
  const auto known = static_cast<std::uint64_t>(_schedule.PeersGet().size());
  const auto without =
      known - static_cast<std::uint64_t>(_schedule.CountIn(TransferState::COMPLETE));
  const auto expected = static_cast<std::uint64_t>(_options.receivers);
  if (known < expected)
    throw Failure(ExitCode::RECEIVERS_MISSING, CountText(known, "receiver") + " answered, " +
                                                   CountText(expected, "was", "were") +
                                                   " expected");
  if (without > 0)
    throw Failure(ExitCode::RECEIVERS_LOST,
                  CountText(without, "receiver does", "receivers do") + " not have the file");
  return ExitCode::OK;
}
