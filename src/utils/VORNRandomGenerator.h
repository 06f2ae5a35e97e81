#ifndef UTILS_VORN_RANDOM_GENERATOR_H
#define UTILS_VORN_RANDOM_GENERATOR_H

#include "platform/VornExport.h"

/// Returns a pseudo-random number from `low` to `high`, both included, drawn from the C library's
/// one generator with the slight bias of a remainder. Returns `low` when `low` is above `high` or
/// the numbers between them do not fit a signed 32-bit count. For spreading timers, not for
/// secrets.
VORN_API int VornRandomNumberGenerate(int low, int high);

/// Seeds the C library's generator, which the whole process shares.
VORN_API void VornRandomNumberSeed(unsigned int seed);

#endif
