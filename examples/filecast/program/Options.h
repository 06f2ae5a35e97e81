#ifndef FILECAST_PROGRAM_OPTIONS_H
#define FILECAST_PROGRAM_OPTIONS_H

#include "wire/Addresses.h"

#include <cstdint>
#include <string>
#include <vector>

/// The command line, read and checked. Times are in seconds.
struct Options {
  enum class Command { NONE, SEND, RECEIVE };

  Command command = Command::NONE;
  AddressPort group{0xEFFF4D01, 7411};  ///< 239.255.77.1
  bool peers = false;                   ///< only deal with the hosts listed in VORN_PEER_HOSTS
  double drop = 0;                      ///< share of the datagrams to be lost on purpose
  std::uint32_t seed = 1;
  double patience = 10;  ///< silence after which the other side is lost
  double wait = 0;       ///< for the other side to appear; 0: for ever, at a sender as `patience`
  int verbosity = -1;    ///< of the library

  // send
  std::string path;
  std::string name;             ///< the file's name at the receivers; empty: its own
  std::vector<AddressPort> to;  ///< unicast: these instead of the group
  int receivers = 1;            ///< expected at least
  double rate = 1000;           ///< megabytes of samples in a second at most, repairs included
  int ttl = 1;

  // recv
  std::string folder;
  AddressPort at;         ///< unicast: receive here; address 0: from the group
  unsigned int from = 0;  ///< local address that answers come from; 0: the system's choice
  int files = 1;          ///< to be received before the program ends
};

/// Fills `options`. Returns whether there is something to do: not after `--help`, nor after a
/// command line that is wrong, which was told to the user. Then `exitCode` is what the program
/// ends with.
bool OptionsRead(int argumentCount, char** arguments, Options* options, int* exitCode);

#endif
