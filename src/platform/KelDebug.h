#ifndef PLATFORM_KEL_DEBUG_H
#define PLATFORM_KEL_DEBUG_H

#include "platform/VornExport.h"

/// Prints one piece of diagnostic text, printf-style. The library builds a line from one or more
/// calls and supplies every newline itself; it ignores the result. Any thread may call it.
///
/// Returns the number of characters that the sink gets, or a negative number for a null format and
/// for one that cannot be formatted. Of a longer text only the first 1023 characters are printed.
VORN_API int KelDebugPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Receives each formatted piece. `text` is terminated, valid only during the call, and may be less
/// than a line. `context` is what was given to `KelDebugSinkSet`.
using KELDebugSink = void (*)(const char* text, void* context);

/// Sets where `KelDebugPrint` writes. A null sink restores standard error. Set it before other
/// threads print: they could see the new sink with the old context.
VORN_API void KelDebugSinkSet(KELDebugSink sink, void* context);

#endif
