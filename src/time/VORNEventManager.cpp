#include "time/VORNEventManager.h"

#include "utils/internal/WordPair.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace {

constexpr std::uint32_t RESERVED_FRACTION = 858993459;

// One word that is ordered as the time is, so that a step of the walk over the table is one
// comparison.
std::int64_t OrderOf(const VORNNtpTime& time) {
  return static_cast<std::int64_t>(WordPairJoin({time.sec, time.frac}));
}

VORNNtpTime TimeOf(std::int64_t order) {
  const WordPair pair = WordPairSplit(static_cast<std::uint64_t>(order));
  return VORNNtpTime::FromWords(pair.high, pair.low);
}

VORNEvent** TableNew(int size) {
  if (size < 0)
    return nullptr;
  return static_cast<VORNEvent**>(std::calloc(static_cast<std::size_t>(size), sizeof(VORNEvent*)));
}

}  // namespace

VORNEventManager::VORNEventManager(int size, int maxSleepSeconds, int ownsEvents)
    : _reservedTime(VORNNtpTime::FromWords(0, RESERVED_FRACTION)),
      _maxSleep(VORNNtpTime::FromWords(maxSleepSeconds, 0)), _events(TableNew(size)), _size(size),
      _ownsEvents(ownsEvents) {}

VORNEventManager::~VORNEventManager() {
  if (_ownsEvents != 0 && _events != nullptr) {
    for (std::int32_t id = 0; id < _size; ++id)
      delete EventRemove(id);
  }
  std::free(_events);
  _events = nullptr;
}

int VORNEventManager::IsValid() const { return _events != nullptr ? 1 : 0; }

int VORNEventManager::EventAdd(VORNEvent* event) {
  if (event == nullptr || _events == nullptr || event->_id < 0 || event->_id >= _size ||
      _events[event->_id] != nullptr)
    return 0;
  _events[event->_id] = event;
  return 1;
}

VORNEvent* VORNEventManager::EventRemove(int id) {
  VORNEvent* event = EventFind(id);
  if (event != nullptr)
    _events[id] = nullptr;
  return event;
}

VORNEvent* VORNEventManager::EventFind(int id) {
  return _events != nullptr && id >= 0 && id < _size ? _events[id] : nullptr;
}

VORNNtpTime VORNEventManager::SleepTimeMinGet(const VORNNtpTime& now) {
  if (_events == nullptr)
    return _maxSleep;
  std::int64_t earliest = OrderOf(VORNNtpTime::Infinite());
  for (std::int32_t id = 0; id < _size; ++id) {
    const VORNEvent* event = _events[id];
    if (event != nullptr && event->_mode == VORNEvent::EVENT_ENABLED)
      earliest = std::min(earliest, OrderOf(event->_deadline));
  }
  VORNNtpTime sleep = TimeOf(earliest) - now;
  if (sleep <= VORNNtpTime())
    sleep = VORNNtpTime();
  return sleep > _maxSleep ? _maxSleep : sleep;
}
