#ifndef FILECAST_SENDER_SEND_RATE_H
#define FILECAST_SENDER_SEND_RATE_H

#include "time/VORNNtpTime.h"

#include <algorithm>
#include <cstdint>

/// What one receiver says of the samples between two heartbeats that it has answered.
struct Round {
  double seconds = 0;         ///< between the two, by the sender's clock
  std::uint64_t sent = 0;     ///< samples
  std::uint64_t arrived = 0;  ///< of them

  double ArrivedShare() const {
    return static_cast<double>(std::min(arrived, sent)) / static_cast<double>(sent);
  }
};

/// How fast samples go out, in samples a second, without socket or clock: it is given the time.
///
/// The rule. Time is cut into rounds of at least one round trip and 25 ms (1 ms at the start). A
/// round tells how many of its samples came to the receiver that lost most.
/// - The start is ten samples in a round trip, as TCP begins, and the rate is doubled after each
///   round until a round loses an eighth more than the base loss.
/// - From then on the rate rises by 60 times its square root in a second. After six rounds with no
///   step back it rises by twice that, then three times, and so on: such a line has room. It rises
///   by a tenth in a round at most. A rate that was not used, because windows or the host were
///   slower, does not rise.
/// - A round that loses more than the base loss, two hundredths, and what chance makes of so few
///   samples, shows that a buffer on the way is full. The rate becomes nine tenths of what came
///   through, but after the start it falls by a fifth at most in a round: a burst of losses, which
///   hits one sender of several, says little about its part of the line.
/// - The base loss is what shows at every rate: a bad line, not a full buffer. It falls at once by
///   half of the way to a smaller loss, rises by a sixteenth of the way to a larger one, and is a
///   third at most.
///
/// The reason. A loss as such says nothing: TCP's rule, which halves the rate for each, would leave
/// a line that loses 1 % nearly idle. But a buffer that is full loses all that is too much, so the
/// loss grows with the rate, and the samples that come through tell what the line carries. One
/// step back to nine tenths of that empties the buffer; a smaller step would keep it full for
/// others, and a larger one would give away more of the line than it gains. Two senders lose the
/// same share of what they send, but the slower one rises by more of its own rate, so with every
/// step they come nearer to each other. A sender that joins a full line doubles on through small
/// losses, while those who are there give way: else it would need long for its part.
class SendRate {
public:
  /// The rate never exceeds `bound`.
  explicit SendRate(double bound);

  /// Samples in a second.
  double Get() const { return _rate; }
  /// Seconds from a heartbeat to its answer, on average.
  double RoundTripGet() const { return _roundTrip; }

  /// An answer came, `seconds` after its heartbeat.
  void AnswerNote(double seconds);
  /// Sending begins.
  void Begin(const VORNNtpTime& now);
  /// Allows the samples of the time since the last call. Time that is not used is lost after a few
  /// milliseconds, so that a stall is not followed by a flood.
  void TimePass(const VORNNtpTime& now);
  /// Whether a sample may go out now.
  bool HasCredit() const { return _credit >= 1; }
  /// One goes out.
  void CreditUse() { _credit -= 1; }

  /// Learns from a round. Returns false, with nothing learnt, while it is too short: then it goes
  /// on, else the next one begins.
  bool RoundNote(const Round& round);

private:
  void Raise(const Round& round);
  void BaseLearn(double loss);

  double _bound;
  double _rate;
  double _roundTrip = 0;
  double _credit = 0;     ///< samples that may go out
  double _baseLoss = -1;  ///< below 0: not known
  bool _isStart = true;   ///< doubles
  int _calm = 0;          ///< rounds since the last step back
  VORNNtpTime _passed;    ///< up to when credit was given
};

#endif
