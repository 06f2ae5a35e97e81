#include "receiver/ReceiveWindow.h"

#include <algorithm>

namespace {

int WindowSize(const FileDescription& file, std::int64_t lead) {
  const std::int64_t left = file.SampleCount() - lead + 1;
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, Bitmap::CAPACITY));
}

}  // namespace

ReceiveWindow::ReceiveWindow(const FileDescription& file)
    : _file(file), _arrived(WindowSize(file, 1), SequenceNumber(1), 0) {}

bool ReceiveWindow::SampleIsWanted(const SequenceNumber& number, int length) const {
  int bit = 1;
  return _arrived.BitGet(number, &bit) != 0 && bit == 0 &&
         length == _file.SampleLength(number.IntegerGet());
}

void ReceiveWindow::SampleStored(const SequenceNumber& number) {
  if (_arrived.BitSet(number, 1) == 0 || number != _arrived.lead)
    return;
  SequenceNumber missing;
  _arrived.BitFirstGet(_arrived.lead, 0, &missing);
  _arrived.LeadMove(missing);
  // A move only shortens the window; what it gains at its end is new, so it is clear.
  SequenceNumber gained = missing + _arrived.size;
  _arrived.size = WindowSize(_file, missing.IntegerGet());
  for (; _arrived.BitInRange(gained) != 0; gained++)
    _arrived.BitSet(gained, 0);
}

void ReceiveWindow::ArrivedGet(const SequenceNumber& highest, Bitmap* arrived) const {
  arrived->Copy(_arrived);
  if (highest < _arrived.lead)
    arrived->Truncate(_arrived.lead - 1);
  else
    arrived->Truncate(highest);
}
