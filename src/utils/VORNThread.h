#ifndef UTILS_VORN_THREAD_H
#define UTILS_VORN_THREAD_H

#include "platform/VornExport.h"

/// What the middleware wants to know about threads before it starts any. It has no fields and no
/// virtual operations, and stays so: programs link against its size.
class VORN_API VORNThreadInfo {
public:
  /// Asks the lower layer about each of the seven priorities at which the middleware's threads run.
  /// Prints a line (level >= 0) for each one that cannot be used. Returns 1 when all can be used,
  /// else 0.
  int PriorityIsValid();
};

#endif
