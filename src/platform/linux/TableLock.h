#ifndef PLATFORM_LINUX_TABLE_LOCK_H
#define PLATFORM_LINUX_TABLE_LOCK_H

#include <atomic>
#include <cstdint>

#include <pthread.h>

/// The threads inside a table, counted, and the barriers in front of it: one word, on which those
/// sleep who cannot go on. Everything that leaves publishes what it wrote to whatever enters later.
class TableRoom {
public:
  static constexpr std::uint32_t AWAITED = 1U << 31;   ///< a change waits for those inside
  static constexpr std::uint32_t CHANGING = 1U << 30;  ///< a change is being made
  static constexpr std::uint32_t COUNT = (1U << 29) - 1;

  /// Adds one to the count, unless a bit of `barriers` is set.
  bool EnterTry(std::uint32_t barriers) {
    std::uint32_t word = _word.load(std::memory_order_relaxed);
    while ((word & barriers) == 0)
      if (_word.compare_exchange_weak(word, word + 1, std::memory_order_acquire,
                                      std::memory_order_relaxed))
        return true;
    return false;
  }
  void Enter(std::uint32_t barriers) {
    if (!EnterTry(barriers))
      Pass(barriers, 1);
  }
  void Leave() {
    const std::uint32_t word = _word.fetch_sub(1, std::memory_order_release);
    if ((word & (COUNT | SLEEPERS)) == (1 | SLEEPERS))
      SleepersWake();
  }
  /// Puts up one barrier, before which those who come then wait.
  void BarrierSet(std::uint32_t barrier) { _word.fetch_or(barrier, std::memory_order_relaxed); }
  /// Removes all barriers.
  void BarriersClear() {
    if ((_word.fetch_and(COUNT, std::memory_order_release) & SLEEPERS) != 0)
      SleepersWake();
  }
  /// Sleeps until no bit of `blocking` is set and adds `change` to the word in the same step.
  void Pass(std::uint32_t blocking, std::uint32_t change);

private:
  static constexpr std::uint32_t SLEEPERS = 1U << 29;  // somebody sleeps on the word

  void SleepersWake();

  std::atomic<std::uint32_t> _word{0};
};

/// The lock of a hash table. It tells finds, which are short and call nobody, from walks, which
/// call the program's visitors and may last:
///
/// - A change waits for the walks under way, then for the finds under way, and only then keeps new
///   finds away. So a find never waits for a walk, and finds cannot hold a change up for ever.
/// - A walk that begins waits for changes that wait, or walks that overlap would hold them up for
///   ever. It waits for its turn on the mutex of the changes, so changes cannot hold it up either.
/// - A walk within a walk, of whatever table, waits for no waiting change: that change may wait for
///   the outer walk, or for the walk of a thread that in turn waits to walk the outer table. It
///   waits for a change that is being made, which waits for nobody but finds.
class TableLock {
public:
  void FindBegin() { _finds.Enter(TableRoom::CHANGING); }
  void FindEnd() { _finds.Leave(); }

  void WalkBegin() {
    if (!_walks.EnterTry(TableRoom::AWAITED | TableRoom::CHANGING))
      WalkQueue();
  }
  void WalkWithinBegin() { _walks.Enter(TableRoom::CHANGING); }
  void WalkEnd() { _walks.Leave(); }

  void ChangeBegin();
  void ChangeEnd();

private:
  void WalkQueue();

  pthread_mutex_t _changes = PTHREAD_MUTEX_INITIALIZER;  // held by the change that waits or is made
  TableRoom _walks;
  TableRoom _finds;
};

#endif
