#include "sender/SendSchedule.h"

#include <algorithm>

SendSchedule::SendSchedule(const FileDescription& file)
    : _file(file), _sentAfter(static_cast<std::size_t>(file.SampleCount()) + 1, 0),
      _repairIsQueued(_sentAfter.size(), false) {
  _peers.reserve(PEER_CAPACITY);
}

Heartbeat SendSchedule::HeartbeatNext(const VORNNtpTime& now) {
  Heartbeat heartbeat;
  heartbeat.count = ++_heartbeats;
  _marks[_heartbeats % MARK_CAPACITY] = {_sent, now};
  heartbeat.file = _file;
  return heartbeat;
}

SendSchedule::Peer* SendSchedule::PeerFind(std::uint32_t id, const AddressPort& place) {
  for (Peer& peer : _peers)
    if (peer.id == id && peer.place == place)
      return &peer;
  if (_peers.size() >= PEER_CAPACITY)
    return nullptr;
  _peers.push_back({id, place, TransferState::RECEIVING, ExitCode::OK, 1, VORNNtpTime(), false});
  return &_peers.back();
}

bool SendSchedule::WindowApply(const WindowHead& head, const Bitmap& arrived,
                               const AddressPort& source, const VORNNtpTime& now) {
  const std::int64_t lead = arrived.lead.IntegerGet();
  // The lead is settled before anything is added to it: it may be the largest number there is.
  if (head.heartbeat == 0 || head.heartbeat > _heartbeats || lead > _highest + 1)
    return false;
  const std::int64_t last = lead + arrived.size - 1;
  const bool whole = lead == _file.SampleCount() + 1;
  if (last > _highest || (head.state == TransferState::COMPLETE && !whole))
    return false;
  Peer* peer = PeerFind(head.receiver, source);
  if (peer == nullptr)
    return false;
  peer->lastHeard = now;
  peer->lost = false;
  ArrivalsLearn(peer, head);
  // Datagrams overtake each other, but neither a lead nor an end is ever taken back.
  peer->lead = std::max(peer->lead, lead);
  if (peer->state == TransferState::RECEIVING) {
    peer->state = head.state;
    peer->reason = head.reason;
  }
  if (peer->state == TransferState::RECEIVING)
    MissingQueue(head.heartbeat, arrived);
  return true;
}

void SendSchedule::ArrivalsLearn(Peer* peer, const WindowHead& head) const {
  if (head.heartbeat < peer->answered)
    return;
  peer->answered = head.heartbeat;
  peer->arrived = head.arrived;
  peer->room = head.room;
  if (peer->roundFrom >= _roundFrom || head.heartbeat < _roundFrom)
    return;
  peer->roundFrom = head.heartbeat;
  peer->roundArrived = head.arrived;
}

std::optional<Round> SendSchedule::RoundGet() const {
  std::optional<Round> worst;
  for (const Peer& peer : _peers) {
    if (!peer.IsServed() || peer.roundFrom < _roundFrom || !IsMarked(peer.roundFrom))
      continue;
    const Mark& from = MarkGet(peer.roundFrom);
    const Mark& to = MarkGet(peer.answered);
    const Round round{(to.time - from.time).SecondsGet(), to.sent - from.sent,
                      peer.arrived - peer.roundArrived};
    if (round.sent > 0 && (!worst || round.ArrivedShare() < worst->ArrivedShare()))
      worst = round;
  }
  return worst;
}

void SendSchedule::MissingQueue(std::uint32_t heartbeat, const Bitmap& arrived) {
  for (SequenceNumber sn = arrived.lead; arrived.BitInRange(sn) != 0; sn++) {
    const std::int64_t number = sn.IntegerGet();
    const auto index = static_cast<std::size_t>(number);
    int bit = 1;
    arrived.BitGet(sn, &bit);
    if (bit != 0 || _repairIsQueued[index] || _sentAfter[index] >= heartbeat)
      continue;
    _repairIsQueued[index] = true;
    _repairQueue.push_back(number);
  }
}

// The last sample that may be sent for the first time.
std::int64_t SendSchedule::LimitGet() const {
  std::int64_t limit = _file.SampleCount();
  for (const Peer& peer : _peers) {
    const bool keepsUp = peer.lead + Bitmap::CAPACITY > _highest;
    if (peer.IsServed() && keepsUp)
      limit = std::min(limit, peer.lead + Bitmap::CAPACITY - 1);
  }
  return limit;
}

bool SendSchedule::RoomIsFull() const {
  return std::any_of(_peers.begin(), _peers.end(), [this](const Peer& peer) {
    return peer.IsServed() &&
           (!IsMarked(peer.answered) || _sent - MarkGet(peer.answered).sent >= peer.room);
  });
}

std::optional<std::int64_t> SendSchedule::SampleNext() {
  std::int64_t number = 0;
  if (RoomIsFull())
    return std::nullopt;
  if (!_repairQueue.empty()) {
    number = _repairQueue.front();
    _repairQueue.pop_front();
    _repairIsQueued[static_cast<std::size_t>(number)] = false;
    ++_repairs;
  } else if (_highest < LimitGet()) {
    number = ++_highest;
  } else {
    return std::nullopt;
  }
  _sentAfter[static_cast<std::size_t>(number)] = _heartbeats;
  ++_sent;
  return number;
}

void SendSchedule::LostPeersFind(const VORNNtpTime& now, const VORNNtpTime& patience) {
  for (Peer& peer : _peers)
    if (peer.state == TransferState::RECEIVING && now - peer.lastHeard > patience)
      peer.lost = true;
}

int SendSchedule::CountIn(TransferState state) const {
  return static_cast<int>(std::count_if(_peers.begin(), _peers.end(),
                                        [state](const Peer& peer) { return peer.state == state; }));
}

int SendSchedule::LostCount() const {
  return static_cast<int>(
      std::count_if(_peers.begin(), _peers.end(), [](const Peer& peer) { return peer.lost; }));
}
