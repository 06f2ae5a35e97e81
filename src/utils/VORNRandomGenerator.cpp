#include "utils/VORNRandomGenerator.h"

#include <cstdint>
#include <cstdlib>
#include <limits>

int VornRandomNumberGenerate(int low, int high) {
  const std::int64_t span = std::int64_t{high} - low + 1;
  if (span <= 0 || span > std::numeric_limits<std::int32_t>::max())
    return low;
  return low + static_cast<int>(std::rand() % span);
}

void VornRandomNumberSeed(unsigned int seed) { std::srand(seed); }
