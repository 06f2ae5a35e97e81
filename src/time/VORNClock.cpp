// How readers and a correction meet, without a lock in the common case:
//
//   reader                                  correction (holds the mutex)
//   R1 g = _generation        (acquire)     W1 _generation = IN_PROGRESS   (relaxed)
//   R2 last = _lastSeconds    (acquire)     W2 _lastSeconds = now          (release)
//   R3 read the lower layer's clock         W3 _offset.sec, .frac          (release)
//   R4 _offset.sec, .frac     (acquire)     W4 _generation = g + 1         (release)
//   R5 _generation == g ?     (relaxed)
//   R6 _lastSeconds = now     (release, only if it is larger)
//
// R1 that reads W4 sees all of W1 to W3. R4 that reads either half of W3 sees W1, so R5, which the
// acquire in R4 keeps after it, cannot still find the old generation: a reader that mixes an old
// and a new half of the offset always reads again. Nothing else orders the two halves.
//
// R2 relies on a promise of the lower layer: its readings fall at a wrap only, whichever threads
// make them. So a reading that begins after `last` was loaded lies below it only if there was a
// wrap. The acquire in R2 keeps R3 after it: R3 is a call into another library, which reads memory
// or asks the kernel before it looks at the hardware's counter. A clock read before `last` could
// lie below it without any wrap.
//
// R2 pairs with W2 and with another reader's R6. Why R6 is a release, although its reader wrote
// nothing before it: a reader that stores corrected seconds has seen W4 at its R1, and the release
// hands W1 on to whoever loads those seconds at R2. With a relaxed store, another reader could load
// corrected seconds, still find the old generation at R5, and take its own uncorrected seconds,
// which lie below, for a second wrap.
//
// R6 is left out while the second stays the same, so that threads that read the clock together
// share its cache line without taking it from each other. Nothing is lost: the value is there
// already, and whoever loads it synchronizes with the thread that stored it. If W2 replaced it
// meanwhile, this reader, which found the old generation at R5, would have stored seconds without
// the correction, as W2 did.
//
// A reader that finds its seconds fallen below R2 has seen the wrap with the old offset. It takes
// the mutex; whoever comes first with the generation unchanged corrects the offset, and every such
// reader adds the rollover to its own result.
//
// Two stores leave seconds in _lastSeconds that belong to the old offset: W2, and the R6 of a
// reader from before the wrap that comes late. Neither harms the readings that follow in the same
// period, since corrected ones lie above. But the next wrap is seen only as a fall below
// _lastSeconds, and a value that is a whole rollover too small hides it: the times then fall. So
// the clock has to be read at least twice in every period of the lower clock, once to correct and
// once more to replace what the correction stored; and a call must not last, together with the
// pause after it, as long as a period. (A second less, to be exact: only seconds are compared.)

#include "time/VORNClock.h"

#include "utils/internal/WordPair.h"

#include <atomic>

namespace {

constexpr std::uint32_t IN_PROGRESS = UINT32_MAX;

using SharedSigned = std::atomic_ref<std::int32_t>;
using SharedUnsigned = std::atomic_ref<std::uint32_t>;

// Wraps, and does not saturate: the infinite time means nothing to a clock.
KELNtpTime TimeAdd(const KELNtpTime& a, const KELNtpTime& b) {
  KELNtpTime sum;
  WordPairStore(&sum, WordPairLoad(&a) + WordPairJoin({b.sec, b.frac}));
  return sum;
}

KELNtpTime OffsetLoad(KELNtpTime& offset) {
  return {SharedSigned(offset.sec).load(std::memory_order_acquire),      // partner: OffsetStore
          SharedUnsigned(offset.frac).load(std::memory_order_acquire)};  // partner: OffsetStore
}

void OffsetStore(KELNtpTime& offset, const KELNtpTime& value) {
  SharedSigned(offset.sec).store(value.sec, std::memory_order_release);      // partner: OffsetLoad
  SharedUnsigned(offset.frac).store(value.frac, std::memory_order_release);  // partner: OffsetLoad
}

// After 2^32 - 1 wraps the count would reach the mark and every reader would wait for ever.
std::uint32_t GenerationAfter(std::uint32_t generation) {
  return generation + 1 == IN_PROGRESS ? 0 : generation + 1;
}

}  // namespace

VORNClock::VORNClock() {
  KelNtpTimeInit(&_clockInfo, &_rollover);
  _clockMutex = KelMutexNew();
}

VORNClock::~VORNClock() {
  KelMutexDelete(_clockMutex);
  _clockMutex = nullptr;
}

int VORNClock::IsValid() const { return _clockMutex != nullptr ? 1 : 0; }

void VORNClock::TimeGet(KELNtpTime* time) {
  if (time == nullptr)
    return;
  const SharedUnsigned generation(_generation);
  const SharedSigned lastSeconds(_lastSeconds);

  std::uint32_t noted = generation.load(std::memory_order_acquire);  // partner: W4
  std::int32_t last = 0;
  for (;;) {
    last = lastSeconds.load(std::memory_order_acquire);  // partner: R6
    KelNtpTimeGet(time);
    *time = TimeAdd(*time, OffsetLoad(_offset));
    if (noted != IN_PROGRESS && generation.load(std::memory_order_relaxed) == noted)
      break;
    // A correction holds the mutex from its first store to its last, so this waits for its end.
    KelMutexTake(_clockMutex);
    KelMutexGive(_clockMutex);
    noted = generation.load(std::memory_order_acquire);
  }

  const std::int32_t now = time->sec;
  if (now > last)
    lastSeconds.store(now, std::memory_order_release);  // partner: R2
  if (now >= last)
    return;

  KelMutexTake(_clockMutex);
  if (generation.load(std::memory_order_relaxed) == noted) {
    generation.store(IN_PROGRESS, std::memory_order_relaxed);
    lastSeconds.store(now, std::memory_order_release);  // partner: R2
    OffsetStore(_offset, TimeAdd(OffsetLoad(_offset), _rollover));
    generation.store(GenerationAfter(noted), std::memory_order_release);  // partner: R1
  }
  KelMutexGive(_clockMutex);
  *time = TimeAdd(*time, _rollover);
}
