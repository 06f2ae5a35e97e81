#ifndef HOSTS_VORN_ENVIRONMENT_H
#define HOSTS_VORN_ENVIRONMENT_H

#include "platform/VornExport.h"

#include <cstdio>

/// Host lists as text: read from a file or an environment variable into the caller's buffer, as
/// entries separated by colons, each a host with an optional mask ("10.1.0.0/ffff0000"). Splitting
/// the text and resolving names are the caller's.
///
/// No state is kept. Any thread may call these, but `VornEnvironmentGet` is only as safe between
/// threads as the system's `getenv`.

/// The lists, by who is in them.
enum VORNEnvironmentType : int {
  VORN_ENVIRONMENT_INVALID = 0,
  VORN_ENVIRONMENT_MANAGER_HOSTS = 1,
  VORN_ENVIRONMENT_APP_HOSTS = 2,
  VORN_ENVIRONMENT_MANAGEE_HOSTS = 3,
  VORN_ENVIRONMENT_PEER_HOSTS = 4,
};

/// By `VORNEnvironmentType`: the name of the environment variable, and of the file in the current
/// working directory.
inline constexpr int VORN_ENVIRONMENT_TYPE_COUNT = 5;
extern VORN_API const char* VORN_ENVIRONMENT_STRING[VORN_ENVIRONMENT_TYPE_COUNT];

/// Both are the empty text; for the layers above. This library does not read them.
extern VORN_API char* VORN_APP_HOSTS_ALL;
extern VORN_API char* VORN_MANAGEE_HOSTS_ALL;

/// The smallest buffer that takes a list, in bytes, and the most characters kept of a file.
inline constexpr int VORN_HOST_LIST_SIZE = 4096;

/// Reads the list of `type` into `buffer` of `length` bytes, at least `VORN_HOST_LIST_SIZE`.
///
/// With `useFile`, a file of the list's name is read if there is one, and settles the result:
/// filtered by `FilterWhitespace` with ':' and '#', without a colon at its end, and cut after
/// `VORN_HOST_LIST_SIZE` characters (one less in a buffer of just that size) with a line at level
/// >= 0, as it is after 16 MiB of whatever it holds. A file that cannot be read to its end gives
/// null, with lines at level >= 0, and leaves in the buffer what was read. A file of nothing but
/// blanks and comments leaves the buffer as it was: store a terminator before the call.
///
/// Otherwise, with `useEnvironment`, the variable of that name is copied as it is, cut after
/// `length` - 1 characters with a line at level >= 0.
///
/// Returns `buffer`; or null when neither is there, and, with nothing written, for a null or short
/// buffer, no source asked for, or a type without a list. The rest is told at level > 0.
VORN_API char* VornEnvironmentGet(char* buffer, int length, VORNEnvironmentType type,
                                  int useEnvironment, int useFile);

/// What the filter carries from one block of a text to the next. At the start of a text:
/// `lastWasSeparator` 1 to drop separators in front of the first entry, `inComment` 0.
struct FilterStatus {
  int lastWasSeparator;  ///< 1: the last byte written was a separator, or none is wanted yet
  int inComment;         ///< 1: a comment goes on
};

/// Copies `inputLength` bytes of `input` to `output`, at most `limit` of them: comments, from
/// `comment` to the end of the line, are dropped; a run of tabs, newlines, spaces and `separator`
/// becomes one `separator`; any other byte stays, carriage return and zero included. The output
/// gets no terminator and may not overlap the input.
///
/// Returns the bytes written. A byte that finds no room sets `*overflow` to 1 and ends the call; a
/// separator that finds none is dropped. Otherwise `*overflow` is 0. A null pointer is refused with
/// 0 and nothing else changed.
VORN_API int FilterWhitespace(FilterStatus* status, int* overflow, char* output, int limit,
                              const char* input, int inputLength, char separator, char comment);

/// Opens a file as `fopen` does. Null when that fails, and for a null argument. The caller closes
/// it.
VORN_API FILE* VornFileOpen(const char* path, const char* mode);

/// Takes the mask off an entry: the entry is cut at its first '/', and the hexadecimal number of at
/// most 8 digits behind it is the mask, in host byte order. Returns the mask; 0xFFFFFFFF, one host,
/// when there is no slash, no number behind it, or no entry. What follows the number is lost.
VORN_API unsigned int VornHostMaskGet(char* entry);

#endif
