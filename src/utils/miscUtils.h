#ifndef UTILS_MISC_UTILS_H
#define UTILS_MISC_UTILS_H

#include "platform/VornExport.h"

/// @file
/// Small helpers for the layers above. They keep no state; any thread may call them.

/// Returns a copy of `src`, made with `malloc`. The caller owns it and releases it with `StrFree`.
/// Null for a null `src`, and when there is no memory.
VORN_API char* StrDup(const char* src);

/// Releases a string from `StrDup`. Returns 1, or 0 when `s` is null and nothing was released.
VORN_API int StrFree(char* s);

/// Returns `s`, or the constant text "(NULL)" when `s` is null. So the result can always be printed
/// with %s.
VORN_API const char* SafeString(const char* s);

/// Writes the text of a packed version into `buffer`, for which the caller provides 10 bytes, and
/// returns `buffer`; null, with nothing written, for a null buffer. Bits 24 to 31 are the major
/// number (signed), bits 16 to 23 the minor number, bits 8 to 15 the letter, counted from a. The
/// low byte is ignored. 0x03010000 is "3.1a".
VORN_API char* VornVersionNumberToString(int version, char* buffer);

/// Returns the constant text "fast mode" for a non-zero mode, "slow mode" for zero.
VORN_API const char* FastModeToString(int mode);

/// Returns the maximum size to use: `typeMax`, the limit of the type, when nothing was requested
/// (`requested` is -1); -1 when more than `typeMax` was requested; else `requested`.
extern "C" VORN_API int VornTypeMaxSizeGet(int requested, int typeMax);

#endif
