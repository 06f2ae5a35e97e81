#ifndef UTILS_VORN_THREAD_H
#define UTILS_VORN_THREAD_H

#include "platform/VornExport.h"

/// What the middleware wants to know about threads before it starts any.
class VORN_API VORNThreadInfo {
public:
  /// Asks the lower layer for each of the seven priority levels that the middleware's threads run
  /// at, and prints a line (level >= 0) for each that is not usable. Returns 1 when all are, else
  /// 0.
  int PriorityIsValid();
};

#endif
