// The clock adds the rollover to what it has read when a reading falls, and takes its mutex for
// nothing else: so it relies on readings that fall at a wrap only, and on a rollover that is told
// before the first reading and never changes.

#include "Clause.h"

#include "platform/KelNtpTime.h"

#include <cstring>

namespace {

double SecondsOf(const KELNtpTime& time) { return time.sec + time.frac * 0x1p-32; }

bool AreEqual(const KELNtpTime& a, const KELNtpTime& b) {
  return a.sec == b.sec && a.frac == b.frac;
}

KELNtpTime TimeRead() {
  KELNtpTime unused, time;
  KelNtpTimeInit(&unused, &unused);
  KelNtpTimeGet(&time);
  return time;
}

bool InitMayBeRepeated() {
  KELNtpTime unused, first, second;
  KelNtpTimeInit(&unused, &first);
  KelNtpTimeGet(&unused);
  KelNtpTimeInit(&unused, &second);
  return AreEqual(first, second);
}

bool RolloverIsPositive() {
  KELNtpTime unused, rollover{-1, 0};
  KelNtpTimeInit(&unused, &rollover);
  return rollover.sec >= 0;
}

bool InitWritesTwoTimes() {
  Guarded<KELNtpTime> clockInfo, rollover;
  KelNtpTimeInit(&clockInfo.object, &rollover.object);
  ClauseRequire("the first time", clockInfo.IsIntact());
  ClauseRequire("the rollover", rollover.IsIntact());
  return true;
}

bool GetWritesOneTime() {
  Guarded<KELNtpTime> time;
  KelNtpTimeGet(&time.object);
  return time.IsIntact();
}

bool ReadingIsPositive() { return TimeRead().sec >= 0; }

// The reading lies between two of the host's own clock, however long this process is held up.
bool SecondsPass() {
  constexpr double TICK = 0.02;  // hosts that count ticks of 10 ms
  const double before = SecondsGet();
  const double first = SecondsOf(TimeRead());
  const double afterFirst = SecondsGet();
  MillisecondsSleep(250);
  const double beforeSecond = SecondsGet();
  const double passed = SecondsOf(TimeRead()) - first;
  return passed >= beforeSecond - afterFirst - TICK && passed <= SecondsGet() - before + TICK;
}

std::uint64_t WordOf(const KELNtpTime& time) {
  return (std::uint64_t{static_cast<std::uint32_t>(time.sec)} << 32) | time.frac;
}

// A reading that begins after another one was made, by whichever thread, does not lie below it.
bool ReadingsDoNotFall() {
  std::atomic<std::uint64_t> latest{WordOf(TimeRead())};
  std::atomic<bool> hasFallen{false};
  ThreadsRun(4, [&](int) {
    for (int i = 0; i < 5000; ++i) {
      std::uint64_t known = latest;
      KELNtpTime time;
      KelNtpTimeGet(&time);
      if (WordOf(time) < known)
        hasFallen = true;
      while (known < WordOf(time) && !latest.compare_exchange_weak(known, WordOf(time))) {
      }
    }
  });
  return !hasFallen;
}

bool TextFits() {
  for (const KELNtpTime& time : {KELNtpTime{0, 0}, KELNtpTime{INT32_MAX, UINT32_MAX}}) {
    Guarded<char[KEL_NTP_TIME_TEXT_SIZE]> text;
    const char* result = KelNtpTimeToString(&time, text.object);
    const std::string row = " of " + std::to_string(time.sec) + " s";
    ClauseRequire("the end of the text" + row, text.IsIntact());
    ClauseRequire("the result" + row, result == text.object);
    ClauseRequire("the terminator" + row,
                  strnlen(text.object, sizeof text.object) < sizeof text.object);
  }
  return true;
}

}  // namespace

Clauses ClockClauses() {
  return {
      {"KelNtpTimeInit", "may be called again, also between readings, and tells the same rollover",
       InitMayBeRepeated},
      {"KelNtpTimeInit", "tells a rollover that is not negative", RolloverIsPositive},
      {"KelNtpTimeInit", "writes two times of two 32-bit words, and nothing beside them",
       InitWritesTwoTimes},
      {"KelNtpTimeGet", "writes one time of two 32-bit words, and nothing beside it",
       GetWritesOneTime},
      {"KelNtpTimeGet", "reads a time that is not negative", ReadingIsPositive},
      {"KelNtpTimeGet", "reads seconds as long as the host's, and fractions of 2^-32 s",
       SecondsPass},
      {"KelNtpTimeGet", "never falls, whichever threads read (but at a wrap)", ReadingsDoNotFall},
      {"KelNtpTimeToString", "returns the buffer, with a terminated text of at most 22 bytes in it",
       TextFits},
  };
}
