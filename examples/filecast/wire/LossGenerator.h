#ifndef FILECAST_WIRE_LOSS_GENERATOR_H
#define FILECAST_WIRE_LOSS_GENERATOR_H

#include <cstdint>
#include <random>

/// Decides which datagrams a demonstration loses. The same seed loses the same ones.
class LossGenerator {
public:
  /// `share` is from 0 to 1.
  LossGenerator(double share, std::uint32_t seed) : _random(seed), _share(share) {}

  bool LosesNext() {
    const bool loses = _share > 0 && std::generate_canonical<double, 32>(_random) < _share;
    _lost += loses ? 1 : 0;
    return loses;
  }
  std::uint64_t LostGet() const { return _lost; }

private:
  std::mt19937 _random;
  double _share;
  std::uint64_t _lost = 0;
};

#endif
