#ifndef UTILS_VORN_RANDOM_GENERATOR_H
#define UTILS_VORN_RANDOM_GENERATOR_H

#include "platform/VornExport.h"

/// Returns a pseudo-random number from `low` to `high`, both included. It is made with `rand`, and
/// a remainder gives it a small bias: good for spreading timers, not for secrets. Returns `low`
/// when `low` is above `high`, and when there are more than 2147483647 numbers to choose from.
VORN_API int VornRandomNumberGenerate(int low, int high);

/// Seeds the generator of the C library with `srand`. The whole process shares it.
VORN_API void VornRandomNumberSeed(unsigned int seed);

#endif
