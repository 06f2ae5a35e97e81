#ifndef PLATFORM_KEL_DEBUG_H
#define PLATFORM_KEL_DEBUG_H

#include "platform/VornExport.h"

/// Prints one piece of diagnostic text, printf-style. The library builds a line from one or more
/// calls and supplies every newline itself; it ignores the result. Any thread may call it.
///
/// Returns the number of characters handed to the sink, or a negative number for a null format or
/// one that cannot be formatted. A text longer than 1023 characters is cut there.
VORN_API int KelDebugPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Receives each formatted piece. `text` is terminated, valid only during the call and not
/// necessarily a whole line. `context` is what was given to `KelDebugSinkSet`.
using KELDebugSink = void (*)(const char* text, void* context);

/// Replaces the place where `KelDebugPrint` writes. A null sink restores standard error. Set it
/// before other threads print: the pair is not changed atomically with respect to them.
VORN_API void KelDebugSinkSet(KELDebugSink sink, void* context);

#endif
