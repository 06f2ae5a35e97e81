#ifndef SUPPORT_WRAPPED_H
#define SUPPORT_WRAPPED_H

/// Begins the function that the linker puts in the place of `symbol` (--wrap). In it, `name`Real is
/// the function that it replaces.
#define WRAPPED(symbol, result, name, ...)                                                         \
  result name##Real(__VA_ARGS__) asm("__real_" symbol);                                            \
  result name##Wrapped(__VA_ARGS__) asm("__wrap_" symbol);                                         \
  result name##Wrapped(__VA_ARGS__)

#endif
