#ifndef FILECAST_WIRE_FAILURE_H
#define FILECAST_WIRE_FAILURE_H

#include "wire/ExitCode.h"

#include <stdexcept>
#include <string>

/// What ends the program, or the receiving of one file: a code, and a text for the user.
class Failure : public std::runtime_error {
public:
  Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}

  ExitCode code;
};

#endif
