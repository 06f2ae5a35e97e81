#include "sender/SendRate.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double LEAST_RATE = 20;  // samples in a second
constexpr double FIRST_SAMPLES = 10;
constexpr double FIRST_RATE_MOST = 14000;  // 20 MB/s: what a line of 200 Mbit/s takes
constexpr double CREDIT_SECONDS = 0.004;
constexpr double CREDIT_LEAST = 8;  // samples

constexpr double ROUND_SECONDS = 0.025;
constexpr double START_ROUND_SECONDS = 0.001;
constexpr std::uint64_t ROUND_SAMPLES = 50;
constexpr std::uint64_t START_ROUND_SAMPLES = 32;

constexpr double START_LOSS = 0.125;
constexpr double LOSS_MARGIN = 0.02;
constexpr double BASE_LOSS_MOST = 1.0 / 3;
constexpr double BACK_OFF = 0.9;
constexpr double BACK_OFF_MOST = 0.8;
constexpr double GAIN = 60;
constexpr int CALM_ROUNDS = 6;
constexpr double GAIN_MOST = 0.1;    // of the rate, in a round
constexpr double USED_SHARE = 0.75;  // of the rate, from which on it was used

}  // namespace

SendRate::SendRate(double bound) : _bound(bound), _rate(std::min(bound, FIRST_RATE_MOST)) {}

void SendRate::AnswerNote(double seconds) {
  _roundTrip = _roundTrip == 0 ? seconds : _roundTrip + (seconds - _roundTrip) / 8;
}

void SendRate::Begin(const VORNNtpTime& now) {
  if (_roundTrip > 0)
    _rate = std::clamp(FIRST_SAMPLES / _roundTrip, LEAST_RATE, _rate);
  _passed = now;
}

void SendRate::TimePass(const VORNNtpTime& now) {
  const double credit = _credit + (now - _passed).SecondsGet() * _rate;
  _credit = std::min(credit, std::max(CREDIT_LEAST, _rate * CREDIT_SECONDS));
  _passed = now;
}

bool SendRate::RoundNote(const Round& round) {
  const double shortest = std::max(_isStart ? START_ROUND_SECONDS : ROUND_SECONDS, _roundTrip);
  if (round.sent < (_isStart ? START_ROUND_SAMPLES : ROUND_SAMPLES) || round.seconds < shortest)
    return false;
  const auto sent = static_cast<double>(round.sent);
  const double loss = 1 - round.ArrivedShare();
  const double base = _baseLoss < 0 ? std::min(loss, BASE_LOSS_MOST) : _baseLoss;
  const double chance = 2 * std::sqrt(base * (1 - base) / sent);
  if (loss - base - chance > (_isStart ? START_LOSS : LOSS_MARGIN)) {
    const double used = std::max(sent / round.seconds, USED_SHARE * _rate);
    const double through = used * (1 - loss) / (1 - base);
    const double deepest = _isStart ? LEAST_RATE : std::max(LEAST_RATE, _rate * BACK_OFF_MOST);
    _rate = std::max(deepest, std::min(_rate, through * BACK_OFF));
    _isStart = false;
    _calm = 0;
  } else if (sent / round.seconds >= _rate * USED_SHARE) {
    Raise(round);
  }
  BaseLearn(loss);
  return true;
}

void SendRate::Raise(const Round& round) {
  ++_calm;
  const double step = GAIN * std::sqrt(_rate) * round.seconds * std::max(1, _calm - CALM_ROUNDS);
  _rate = std::min(_bound, _isStart ? 2 * _rate : _rate + std::min(step, GAIN_MOST * _rate));
}

void SendRate::BaseLearn(double loss) {
  if (_baseLoss < 0)
    _baseLoss = loss;
  _baseLoss += (loss - _baseLoss) / (loss < _baseLoss ? 2 : 16);
  _baseLoss = std::min(_baseLoss, BASE_LOSS_MOST);
}
