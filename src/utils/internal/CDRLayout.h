#ifndef UTILS_INTERNAL_CDR_LAYOUT_H
#define UTILS_INTERNAL_CDR_LAYOUT_H

/// The next multiple of 4 at or after a stream position. Computed on the unsigned word, so that a
/// position at the end of the range wraps instead of overflowing.
constexpr int CDRPositionAlign4(int position) {
  return static_cast<int>((static_cast<unsigned int>(position) + 3U) & ~3U);
}

/// Bytes from `position` to the end of an element of `length` bytes that is aligned to 4: padding
/// included.
constexpr int CDRElementSize(int position, int length) {
  return static_cast<int>(static_cast<unsigned int>(CDRPositionAlign4(position)) -
                          static_cast<unsigned int>(position)) +
         length;
}

#endif
