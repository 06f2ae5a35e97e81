#ifndef TIME_VORN_EVENT_MANAGER_H
#define TIME_VORN_EVENT_MANAGER_H

#include "platform/VornExport.h"
#include "time/VORNEvent.h"
#include "time/VORNNtpTime.h"

#include <cstdint>

/// A table of events by identifier. It tells a waiting loop how long it may sleep. It reads no
/// clock and fires nothing. Its size is fixed, and nothing is allocated after construction. One
/// thread at a time uses the manager and the events in it.
///
/// An invalid manager refuses: `EventAdd` returns 0, `EventRemove` and `EventFind` return null, and
/// `SleepTimeMinGet` returns the longest sleep.
///
/// The order of its virtual operations and fields is part of what programs link against: append
/// only.
class VORN_API VORNEventManager {
public:
  /// A table for the identifiers 0 to `size` - 1. No sleep is longer than `maxSleepSeconds`. With a
  /// non-zero `ownsEvents`, the destructor deletes the events that are still in the table. Test
  /// `IsValid`: without memory, and for a negative size, the manager is invalid.
  VORNEventManager(int size, int maxSleepSeconds, int ownsEvents);
  /// Deletes the events in the table, in the order of their identifiers, if the manager owns them.
  virtual ~VORNEventManager();
  VORNEventManager(const VORNEventManager&) = delete;
  VORNEventManager& operator=(const VORNEventManager&) = delete;

  /// 1 when the table exists, else 0.
  virtual int IsValid() const;

  /// Puts `event` into the slot of its identifier and keeps the pointer. Returns 1, or 0 for null,
  /// for an identifier outside the table and for an occupied slot.
  int EventAdd(VORNEvent* event);
  /// Empties a slot and returns the event that was in it. The caller owns it from then on. Null for
  /// an empty slot and for an identifier outside the table.
  VORNEvent* EventRemove(int id);
  /// The event in a slot, or null. It stays in the table.
  VORNEvent* EventFind(int id);

  /// How long to sleep from `now`: until the earliest deadline of an enabled event, and no longer
  /// than the longest sleep. Zero when an event is due or overdue.
  VORNNtpTime SleepTimeMinGet(const VORNNtpTime& now);

protected:
  VORNNtpTime _reservedTime;  ///< about 0.2 s, kept for the layer above
  VORNNtpTime _maxSleep;      ///< the longest sleep
  VORNEvent** _events;        ///< `_size` slots; null: invalid
  std::int32_t _size;         ///< slots in the table
  int _ownsEvents;            ///< non-zero: the destructor deletes the events in the table
};

#endif
