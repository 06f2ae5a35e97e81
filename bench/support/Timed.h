#ifndef BENCH_SUPPORT_TIMED_H
#define BENCH_SUPPORT_TIMED_H

#include "support/Case.h"

#include <algorithm>
#include <ctime>
#include <utility>

inline double SecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Makes the compiler believe that somebody reads `value`, and that all memory may have changed.
template <typename Value> void Keep(const Value& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

/// Hides from the compiler where a pointer comes from, so that it knows nothing about the object.
template <typename Object> Object* Unknown(Object* object) {
  asm volatile("" : "+r"(object) : : "memory");
  return object;
}

/// Repetitions that take about `seconds`, after `count` of them took `elapsed`. It grows by steps:
/// the first repetitions are slow, and what they predict is too low.
inline long CountNext(long count, double elapsed, double seconds) {
  const double factor = std::clamp(seconds / std::max(elapsed, 1e-9), 0.1, 100.0);
  return std::max(1L, static_cast<long>(static_cast<double>(count) * factor));
}

/// Measures a step in nanoseconds. The number of repetitions follows the time that they took, so
/// that the variants of a case run for equally long: on a busy machine, those that run for a
/// shorter time are interrupted less often.
template <typename Step> Measure Timed(Step step) {
  return [step = std::move(step), count = 0L](double seconds) mutable -> Values {
    const auto run = [&step](long repetitions) {
      const double start = SecondsNow();
      for (long i = 0; i < repetitions; ++i)
        Keep(step());
      return SecondsNow() - start;
    };
    if (count == 0) {
      count = 1;
      double elapsed = run(count);
      while (elapsed < seconds / 2) {
        count = CountNext(count, elapsed, seconds);
        elapsed = run(count);
      }
    }
    const double elapsed = run(count);
    const double each = elapsed * 1e9 / static_cast<double>(count);
    count = CountNext(count, elapsed, seconds);
    return {each};
  };
}

/// The same as a variant's preparation, for a step that nothing can keep from being possible.
template <typename Step> std::function<Measure()> Always(Step step) {
  return [step = std::move(step)] { return Timed(step); };
}

#endif
