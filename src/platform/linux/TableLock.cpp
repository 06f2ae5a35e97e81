#include "platform/linux/TableLock.h"

#include <climits>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The kernel reads the word where it lies.
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
              std::atomic<std::uint32_t>::is_always_lock_free);

long Futex(const std::atomic<std::uint32_t>& word, int operation, std::uint32_t value) {
  return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

}  // namespace

void TableRoom::Pass(std::uint32_t blocking, std::uint32_t change) {
  std::uint32_t word = _word.load(std::memory_order_relaxed);
  for (;;) {
    const bool blocked = (word & blocking) != 0;
    if (!blocked || (word & SLEEPERS) == 0) {
      const std::uint32_t next = blocked ? word | SLEEPERS : word + change;
      if (!_word.compare_exchange_weak(word, next, std::memory_order_acquire,
                                       std::memory_order_relaxed))
        continue;
      if (!blocked)
        return;
      word = next;
    }
    // Returns at once when the word has changed meanwhile; a signal is as good a reason to look.
    static_cast<void>(Futex(_word, FUTEX_WAIT_PRIVATE, word));
    word = _word.load(std::memory_order_relaxed);
  }
}

// All of them, because those who wait for a barrier and the change that waits for the count sleep
// on the same word.
void TableRoom::SleepersWake() { static_cast<void>(Futex(_word, FUTEX_WAKE_PRIVATE, INT_MAX)); }

// Whoever holds the mutex knows that no change waits or is made, so the barriers are down.
void TableLock::WalkQueue() {
  pthread_mutex_lock(&_changes);
  _walks.Enter(TableRoom::CHANGING);
  pthread_mutex_unlock(&_changes);
}

void TableLock::ChangeBegin() {
  pthread_mutex_lock(&_changes);
  _walks.BarrierSet(TableRoom::AWAITED);
  // From the step that sees no walk on, walks within walks stay outside as well.
  _walks.Pass(TableRoom::COUNT, TableRoom::CHANGING);
  _finds.BarrierSet(TableRoom::CHANGING);
  _finds.Pass(TableRoom::COUNT, 0);
}

void TableLock::ChangeEnd() {
  _finds.BarriersClear();
  _walks.BarriersClear();
  pthread_mutex_unlock(&_changes);
}
