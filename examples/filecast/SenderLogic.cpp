#include "SenderLogic.h"

#include <algorithm>

SenderLogic::SenderLogic(const FileDescription& file, std::uint32_t session)
    : _file(file), _session(session),
      _sentAfter(static_cast<std::size_t>(file.SampleCount()) + 1, 0),
      _repairIsQueued(_sentAfter.size(), false) {
  _receivers.reserve(RECEIVER_CAPACITY);
}

Heartbeat SenderLogic::HeartbeatNext(int answerPort) {
  Heartbeat heartbeat;
  heartbeat.count = ++_heartbeats;
  heartbeat.answerPort = answerPort;
  heartbeat.file = _file;
  return heartbeat;
}

SenderLogic::Receiver* SenderLogic::ReceiverFind(std::uint32_t id, unsigned int address, int port) {
  for (Receiver& receiver : _receivers)
    if (receiver.id == id && receiver.address == address && receiver.port == port)
      return &receiver;
  if (_receivers.size() >= RECEIVER_CAPACITY)
    return nullptr;
  _receivers.push_back({id, address, port, ReceiverState::RECEIVING, 1, VORNNtpTime(), false});
  return &_receivers.back();
}

bool SenderLogic::WindowTake(const Window& window, const Bitmap& arrived, unsigned int address,
                             int port, const VORNNtpTime& now) {
  const std::int64_t lead = NumberOf(arrived.lead);
  // The lead is settled before anything is added to it: it may be the largest number there is.
  if (window.heartbeat == 0 || window.heartbeat > _heartbeats || lead > _highest + 1)
    return false;
  const std::int64_t last = lead + arrived.size - 1;
  const bool whole = lead == _file.SampleCount() + 1;
  if (last > _highest || (window.state == ReceiverState::COMPLETE && !whole))
    return false;
  Receiver* receiver = ReceiverFind(window.receiver, address, port);
  if (receiver == nullptr)
    return false;
  receiver->lastHeard = now;
  receiver->lost = false;
  // Datagrams overtake each other, but neither a lead nor an end is ever taken back.
  receiver->lead = std::max(receiver->lead, lead);
  if (receiver->state == ReceiverState::RECEIVING)
    receiver->state = window.state;
  if (receiver->state == ReceiverState::RECEIVING)
    MissingQueue(window.heartbeat, arrived);
  return true;
}

void SenderLogic::MissingQueue(std::uint32_t heartbeat, const Bitmap& arrived) {
  for (SequenceNumber sn = arrived.lead; arrived.BitInRange(sn) != 0; sn++) {
    const std::int64_t number = NumberOf(sn);
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
std::int64_t SenderLogic::LimitGet() const {
  std::int64_t limit = _file.SampleCount();
  for (const Receiver& receiver : _receivers) {
    const bool keepsUp = receiver.lead + Bitmap::CAPACITY > _highest;
    if (receiver.state == ReceiverState::RECEIVING && !receiver.lost && keepsUp)
      limit = std::min(limit, receiver.lead + Bitmap::CAPACITY - 1);
  }
  return limit;
}

std::optional<std::int64_t> SenderLogic::SampleNext() {
  std::int64_t number = 0;
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
  return number;
}

int SenderLogic::LostReceiversFind(const VORNNtpTime& now, const VORNNtpTime& patience) {
  int found = 0;
  for (Receiver& receiver : _receivers) {
    if (receiver.lost || receiver.state != ReceiverState::RECEIVING ||
        now - receiver.lastHeard <= patience)
      continue;
    receiver.lost = true;
    ++found;
  }
  return found;
}

int SenderLogic::CountIn(ReceiverState state) const {
  return static_cast<int>(std::count_if(_receivers.begin(), _receivers.end(),
                                        [state](const Receiver& r) { return r.state == state; }));
}

int SenderLogic::LostCount() const {
  return static_cast<int>(std::count_if(_receivers.begin(), _receivers.end(),
                                        [](const Receiver& r) { return r.lost; }));
}

bool SenderLogic::IsFinished(int expected) const {
  return static_cast<int>(_receivers.size()) >= expected &&
         std::all_of(_receivers.begin(), _receivers.end(), [](const Receiver& receiver) {
           return receiver.lost || receiver.state != ReceiverState::RECEIVING;
         });
}
