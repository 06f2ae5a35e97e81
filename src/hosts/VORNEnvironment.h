#ifndef HOSTS_VORN_ENVIRONMENT_H
#define HOSTS_VORN_ENVIRONMENT_H

#include "platform/VornExport.h"

#include <cstdio>

/// @file
/// Host lists as text: read from a file or an environment variable into the caller's buffer, as
/// entries separated by colons, each a host with an optional mask ("10.1.0.0/ffff0000"). Splitting
/// the text and resolving names are the caller's.
///
/// No state is kept. Any thread may call these, but `VornEnvironmentGet` is only as safe between
/// threads as the system's `getenv`.

/// The lists, by whose hosts are in them.
enum VORNEnvironmentType : int {
  VORN_ENVIRONMENT_INVALID = 0,        ///< no list
  VORN_ENVIRONMENT_MANAGER_HOSTS = 1,  ///< the managers'
  VORN_ENVIRONMENT_APP_HOSTS = 2,      ///< the applications'
  VORN_ENVIRONMENT_MANAGEE_HOSTS = 3,  ///< the managees'
  VORN_ENVIRONMENT_PEER_HOSTS = 4,     ///< the peers'
};

/// How many values `VORNEnvironmentType` has, the invalid one included.
inline constexpr int VORN_ENVIRONMENT_TYPE_COUNT = 5;

/// By `VORNEnvironmentType`: the name of the environment variable, and of the file in the current
/// working directory.
extern VORN_API const char* VORN_ENVIRONMENT_STRING[VORN_ENVIRONMENT_TYPE_COUNT];

/// The empty text, for the layers above. This library does not read it.
extern VORN_API char* VORN_APP_HOSTS_ALL;
/// The empty text, for the layers above. This library does not read it.
extern VORN_API char* VORN_MANAGEE_HOSTS_ALL;

/// The size of the smallest buffer for a list, in bytes, and the most characters kept of a file.
inline constexpr int VORN_HOST_LIST_SIZE = 4096;

/// Reads the list of `type` into `buffer` of `length` bytes, at least `VORN_HOST_LIST_SIZE`. There
/// are two sources, and the first one that is there gives the list:
///
/// 1. With `useFile`: the file with the list's name. Its text goes through `FilterWhitespace` with
///    ':' and '#'; a colon at the end is removed. At most `VORN_HOST_LIST_SIZE` characters are kept
///    (in a buffer of just that size one less), and at most the first 16 MiB (16777216 bytes) of
///    the file are read. Of a longer file the list holds what was kept so far, and a line tells it
///    (level >= 0). If the file cannot be read to its end, the result is null, lines tell it
///    (level >= 0), and the buffer holds what was read. A file of blanks and comments alone leaves
///    the buffer as it was: store a terminator before the call.
/// 2. With `useEnvironment`: the variable with the list's name, copied as it is. At most
///    `length - 1` characters are kept; a line (level >= 0) tells of a longer value.
///
/// Returns `buffer`; or null if neither source is there. Also null, with nothing written, for a
/// null buffer, a buffer that is too short, no source asked for, and a type without a list. Which
/// source is used or missing is told at level > 0.
VORN_API char* VornEnvironmentGet(char* buffer, int length, VORNEnvironmentType type,
                                  int useEnvironment, int useFile);

/// What the filter carries from one block of a text to the next. At the start of a text, set
/// `lastWasSeparator` to 1, so that separators in front of the first entry are dropped, and
/// `inComment` to 0. Append only: programs are linked against the order of the fields.
struct FilterStatus {
  int lastWasSeparator;  ///< 1: the last byte written was a separator, or none is wanted yet
  int inComment;         ///< 1: a comment goes on
};

/// Copies `inputLength` bytes of `input` to `output`, and writes at most `limit` bytes there.
/// Comments are dropped, from `comment` to the end of the line. A run of tabs, newlines, spaces and
/// `separator` becomes one `separator`. Any other byte stays, also a carriage return and a zero.
/// The output gets no terminator and may not overlap the input.
///
/// Returns the bytes written. `*overflow` becomes 1 if a byte finds no room, which ends the call; a
/// separator that finds no room is dropped instead. In every other case `*overflow` becomes 0. A
/// null pointer that the call would need is refused: the result is 0 and `status` stays as it was.
/// `input` may be null when `inputLength` is 0 or less, `output` when `limit` is 0 or less.
VORN_API int FilterWhitespace(FilterStatus* status, int* overflow, char* output, int limit,
                              const char* input, int inputLength, char separator, char comment);

/// Opens a file as `fopen` does. Returns null if that fails, and for a null argument. The caller
/// closes the file.
VORN_API FILE* VornFileOpen(const char* path, const char* mode);

/// Reads the mask of an entry and removes it. The entry is cut at its first '/'. The mask is the
/// hexadecimal number after it, of at most 8 digits, in host byte order; whatever follows the
/// number is lost. Returns the mask; or 0xFFFFFFFF, which is one host, if there is no entry, no
/// slash or no number after the slash.
VORN_API unsigned int VornHostMaskGet(char* entry);

#endif
