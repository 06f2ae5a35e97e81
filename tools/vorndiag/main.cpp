#include "utils/VORNUtilsDiag.h"
#include "vorndiag/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

struct Arguments {
  int verbosity = 0;
  QueueOptions queue;
  std::string type;
  std::vector<std::string> addresses;
};

void CommandsDescribe(CLI::App* app, Arguments* arguments) {
  app->require_subcommand(1);
  app->add_option("-v,--verbosity", arguments->verbosity, "how much the library itself prints")
      ->capture_default_str();
  app->add_subcommand("nic", "Shows the interfaces as the library sees them.");
  app->add_subcommand(
      "queues",
      "Lists the message queues of this IPC namespace: ids from -32768 to 32767 if one of "
      "their three objects exists, others if two exist and look like a queue's.");

  CLI::App* queue = app->add_subcommand("queue", "Looks at one message queue, changing nothing.");
  queue->add_option("id", arguments->queue.id, "queue id")->required();
  CLI::Option* give = queue->add_flag("--give-mutex", arguments->queue.giveMutex,
                                      "give back the mutex of a dead sender");
  CLI::Option* remove = queue->add_flag("--remove", arguments->queue.remove,
                                        "remove the queue, in use or not, from the host");
  remove->excludes(give);
  queue->add_flag("--force", arguments->queue.force,
                  "do so although the holder may live or the objects may be another program's");
  queue->callback([arguments] {
    if (arguments->queue.force && !arguments->queue.giveMutex && !arguments->queue.remove)
      throw CLI::RequiresError("--force", "--give-mutex or --remove");
  });

  CLI::App* hosts = app->add_subcommand("hosts", "Shows a host list and whom it admits.");
  hosts->add_option("type", arguments->type, "manager, app, managee or peer")
      ->required()
      ->check(CLI::IsMember({"manager", "app", "managee", "peer"}));
  hosts->add_option("address", arguments->addresses, "addresses or names to ask about");
}

ExitCode CommandRun(const CLI::App& app, const Arguments& arguments) {
  VornUtilsVerbositySet(arguments.verbosity);
  if (app.got_subcommand("nic"))
    return NicCommand();
  if (app.got_subcommand("queues"))
    return QueuesCommand();
  if (app.got_subcommand("queue"))
    return QueueCommand(arguments.queue);
  return HostsCommand(arguments.type, arguments.addresses);
}

int ProgramRun(int argumentCount, char** argumentTexts) {
  Arguments arguments;
  CLI::App app("Looks at what the library uses on this host.");
  app.footer("Exit codes: 0 nothing wrong, 1 something is, 2 wrong option, 3 no such thing.");
  CommandsDescribe(&app, &arguments);
  try {
    app.parse(argumentCount, argumentTexts);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_FINE : EXIT_USAGE;
  }
  return CommandRun(app, arguments);
}

}  // namespace

int main(int argumentCount, char** argumentTexts) {
  try {
    return ProgramRun(argumentCount, argumentTexts);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vorndiag: %s\n", error.what());
    return EXIT_TROUBLE;
  }
}
