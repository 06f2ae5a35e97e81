#ifndef UTILS_INTERNAL_DIAGNOSTICS_H
#define UTILS_INTERNAL_DIAGNOSTICS_H

#include "platform/KelDebug.h"
#include "utils/VORNUtilsDiag.h"

#include <atomic>

/// The four verbosity tests, by what is printed under them.
enum class Diagnostic : int { FAILURE = 0, NOTE = 1, SHARED_MEMORY = 2, TRACE = 3 };

/// Atomic, because any thread may set the level while others print.
inline bool DiagnosticIsOn(Diagnostic kind) {
  return std::atomic_ref(VORNUtilsVerbosity).load(std::memory_order_relaxed) >=
         static_cast<int>(kind);
}

/// Prints a line when its test passes. The arguments are evaluated in any case, so ask
/// `DiagnosticIsOn` first when a text is costly to make.
///
/// The compiler cannot check the format: the shared texts are pointers that a program can change.
template <typename... Arguments>
void DiagnosticPrint(Diagnostic kind, const char* format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  if (DiagnosticIsOn(kind))
    KelDebugPrint(format, arguments...);
#pragma GCC diagnostic pop
}

#endif
