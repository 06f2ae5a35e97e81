#ifndef FILECAST_WIRE_EXIT_CODE_H
#define FILECAST_WIRE_EXIT_CODE_H

/// How filecast ends, and what one side tells the other about it. Scripts and the wire form rely on
/// the numbers, so a new one is added at the end.
enum class ExitCode : int {
  OK = 0,
  INTERNAL = 1,
  USAGE = 2,
  FILE_UNREADABLE = 3,
  FOLDER_UNUSABLE = 4,
  NO_MULTICAST = 5,
  PORT_IN_USE = 6,
  NETWORK_FAILED = 7,
  PEERS_UNUSABLE = 8,
  RECEIVERS_MISSING = 9,
  RECEIVERS_LOST = 10,
  FILE_CHANGED = 11,
  DISK_FULL = 12,
  WRITE_FAILED = 13,
  CHECKSUM_WRONG = 14,
  SENDER_SILENT = 15,
  SENDER_ENDED = 16,
  INTERRUPTED = 17,
  NAME_TAKEN = 18,
};

/// A row of the table that `--help` prints. Rows are in the order of the numbers.
struct ExitCodeLine {
  ExitCode code;
  const char* name;
  const char* meaning;
};

inline constexpr ExitCodeLine EXIT_CODES[] = {
    {ExitCode::OK, "OK", "every file is whole where it should be"},
    {ExitCode::INTERNAL, "INTERNAL", "no memory, or a fault of the program"},
    {ExitCode::USAGE, "USAGE", "the command line is wrong"},
    {ExitCode::FILE_UNREADABLE, "FILE_UNREADABLE", "the file to send cannot be read or named"},
    {ExitCode::FOLDER_UNUSABLE, "FOLDER_UNUSABLE",
     "the folder to receive into is missing or not writable"},
    {ExitCode::NO_MULTICAST, "NO_MULTICAST", "no interface can multicast"},
    {ExitCode::PORT_IN_USE, "PORT_IN_USE", "another program has the port"},
    {ExitCode::NETWORK_FAILED, "NETWORK_FAILED", "the system refuses to send or receive"},
    {ExitCode::PEERS_UNUSABLE, "PEERS_UNUSABLE",
     "the list of peers is missing, unreadable or names nobody"},
    {ExitCode::RECEIVERS_MISSING, "RECEIVERS_MISSING", "fewer receivers answered than expected"},
    {ExitCode::RECEIVERS_LOST, "RECEIVERS_LOST", "a receiver failed or fell silent"},
    {ExitCode::FILE_CHANGED, "FILE_CHANGED", "the file became shorter while it was sent"},
    {ExitCode::DISK_FULL, "DISK_FULL", "no room for the received file"},
    {ExitCode::WRITE_FAILED, "WRITE_FAILED", "the received file cannot be written"},
    {ExitCode::CHECKSUM_WRONG, "CHECKSUM_WRONG", "the received file is not the one announced"},
    {ExitCode::SENDER_SILENT, "SENDER_SILENT", "no sender was heard, or it fell silent"},
    {ExitCode::SENDER_ENDED, "SENDER_ENDED", "the sender ended before the file was whole"},
    {ExitCode::INTERRUPTED, "INTERRUPTED", "ended by a signal"},
    {ExitCode::NAME_TAKEN, "NAME_TAKEN", "a folder has the name of the received file"},
};

/// What the table says of `code`.
constexpr const char* ExitCodeMeaning(ExitCode code) {
  return EXIT_CODES[static_cast<int>(code)].meaning;
}

#endif
