#ifndef TIME_VORN_EVENT_MANAGER_H
#define TIME_VORN_EVENT_MANAGER_H

#include "platform/VornExport.h"
#include "time/VORNEvent.h"
#include "time/VORNNtpTime.h"

#include <cstdint>

/// A table of events by identifier that answers how long a waiting loop may sleep. It reads no
/// clock and fires nothing. Its size is fixed and nothing is allocated after construction. One
/// thread at a time uses the manager and the events in it.
///
/// An invalid manager refuses: additions answer 0, lookups null, and the sleep is the longest one.
class VORN_API VORNEventManager {
public:
  /// A table for the identifiers 0 to `size` - 1. `maxSleepSeconds` bounds every sleep. With a
  /// non-zero `ownsEvents` the destructor deletes the events that are still in the table. Test
  /// `IsValid`: a negative size or a lack of memory leaves the manager invalid.
  VORNEventManager(int size, int maxSleepSeconds, int ownsEvents);
  virtual ~VORNEventManager();
  VORNEventManager(const VORNEventManager&) = delete;
  VORNEventManager& operator=(const VORNEventManager&) = delete;

  /// 1 when the table exists, else 0.
  virtual int IsValid() const;

  /// Puts `event` into the slot that its identifier names and keeps the pointer. Returns 1, or 0
  /// for null, an identifier outside the table or an occupied slot.
  int EventAdd(VORNEvent* event);
  /// Empties a slot and returns the event that was in it, which is now the caller's. Null for an
  /// empty slot or an identifier outside the table.
  VORNEvent* EventRemove(int id);
  /// The event in a slot, or null. The table keeps it.
  VORNEvent* EventFind(int id);

  /// The time from `now` to the earliest deadline of an enabled event: zero when one is due or
  /// overdue, the longest sleep when none comes sooner.
  VORNNtpTime SleepTimeMinGet(const VORNNtpTime& now);

protected:
  VORNNtpTime _reservedTime;  ///< about 0.2 s, kept for the layer above
  VORNNtpTime _maxSleep;
  VORNEvent** _events;  ///< `_size` slots; null: invalid
  std::int32_t _size;
  int _ownsEvents;
};

#endif
