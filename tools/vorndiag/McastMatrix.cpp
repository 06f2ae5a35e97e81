#include "vorndiag/McastMatrix.h"

#include <algorithm>

void McastMatrix::Expect(const std::string& sender, const std::string& receiver, int sent) {
  McastCell& cell = _cells[{sender, receiver}];
  cell.isExpected = true;
  cell.sent = sent;
}

void McastMatrix::Add(const std::string& sender, const std::string& receiver, std::uint32_t run,
                      int sent, int number, int timeToLive) {
  const Key key{sender, receiver};
  if (_cells.size() >= CELLS_MAX && !_cells.contains(key))
    return;
  McastCell& cell = _cells[key];
  Numbers& numbers = _numbers[key];
  if (numbers.run != run || numbers.seen.empty()) {
    const bool isExpected = cell.isExpected;
    numbers = {run, {}};
    cell = {};
    cell.isExpected = isExpected;
    cell.timeToLiveLow = cell.timeToLiveHigh = timeToLive;
  }
  cell.sent = sent;
  const bool isNew = numbers.seen.insert(number).second;
  ++(isNew ? cell.heard : cell.repeated);
  cell.timeToLiveLow = std::min(cell.timeToLiveLow, timeToLive);
  cell.timeToLiveHigh = std::max(cell.timeToLiveHigh, timeToLive);
}

std::vector<std::string> McastMatrix::SendersGet() const {
  std::set<std::string> names;
  for (const auto& [key, cell] : _cells)
    names.insert(key.first);
  return {names.begin(), names.end()};
}

std::vector<std::string> McastMatrix::ReceiversGet() const {
  std::set<std::string> names;
  for (const auto& [key, cell] : _cells)
    names.insert(key.second);
  return {names.begin(), names.end()};
}

bool McastMatrix::HasOther(const std::set<std::string>& ours) const {
  return std::any_of(_cells.begin(), _cells.end(), [&](const auto& cell) {
    return cell.second.heard > 0 && !ours.contains(cell.first.second);
  });
}

bool McastMatrix::IsEmpty() const { return !HasOther({}); }
