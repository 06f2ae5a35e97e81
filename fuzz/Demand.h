#ifndef FUZZ_DEMAND_H
#define FUZZ_DEMAND_H

#include <cstdio>
#include <cstdlib>

/// Ends the run when `claim` does not hold. libFuzzer then keeps the input.
inline void Demand(bool claim, const char* text) {
  if (claim)
    return;
  std::fprintf(stderr, "broken: %s\n", text);
  std::abort();
}

#endif
