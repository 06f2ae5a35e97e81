#include "program/ReceiveCommand.h"
#include "program/SendCommand.h"
#include "program/Signals.h"
#include "utils/VORNUtilsDiag.h"
#include "wire/Failure.h"

#include <cstdio>
#include <exception>

namespace {

ExitCode CommandRun(const Options& options) {
  VornUtilsVerbositySet(options.verbosity);
  PeerList peers;
  if (options.peers)
    peers.ListRead();
  const InterfaceTable interfaces(&peers);
  if (options.command == Options::Command::SEND)
    return SendCommand(options, &peers).Run();
  return ReceiveCommand(options, &peers).Run();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    SignalsCatch();
    Options options;
    int exitCode = 0;
    if (!OptionsRead(argumentCount, arguments, &options, &exitCode))
      return exitCode;
    return static_cast<int>(CommandRun(options));
  } catch (const Failure& failure) {
    std::fprintf(stderr, "filecast: %s\n", failure.what());
    return static_cast<int>(failure.code);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "filecast: %s\n", error.what());
    return static_cast<int>(ExitCode::INTERNAL);
  }
}
