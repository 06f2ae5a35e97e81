#include "ExitCode.h"
#include "Receiver.h"
#include "Sender.h"
#include "Signals.h"
#include "utils/VORNUtilsDiag.h"

#include <cstdio>
#include <exception>

namespace {

ExitCode CommandRun(const Options& options) {
  VornUtilsVerbositySet(options.verbosity);
  Peers peers;
  if (options.peers)
    peers.ListRead();
  const InterfaceTable interfaces(&peers);
  if (options.command == Options::Command::SEND)
    return Sender(options, &peers).Run();
  return Receiver(options, &peers).Run();
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
