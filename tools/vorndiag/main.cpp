#include "utils/VORNUtilsDiag.h"
#include "vorndiag/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

struct Arguments {
  int verbosity = 0;
  bool isJson = false;
  QueuesOptions queues;
  QueueOptions queue;
  HostsOptions hosts;
  DecodeOptions decode;
};

void LiveDescribe(CLI::App* command, LiveOptions* live) {
  CLI::Option* watch = command->add_flag("--watch", live->isOn, "show it live, until Ctrl-C");
  command->add_option("--every", live->seconds, "seconds between two views")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str()
      ->needs(watch);
  command->add_option("--looks", live->looks, "end after so many views")
      ->check(CLI::Range(1, 1000000))
      ->needs(watch);
}

void QueuesDescribe(CLI::App* app, QueuesOptions* options) {
  CLI::App* queues = app->add_subcommand(
      "queues",
      "Lists the message queues of this IPC namespace: ids from -32768 to 32767 if one of "
      "their three objects exists, others if two exist and look like a queue's.");
  LiveDescribe(queues, &options->live);
  queues
      ->add_flag("--heal", options->heal,
                 "give back mutexes of dead senders and wake receivers that sleep beside "
                 "messages; nothing else, so that a timer may do it")
      ->excludes("--watch");
}

void QueueDescribe(CLI::App* app, QueueOptions* options) {
  CLI::App* queue = app->add_subcommand("queue", "Looks at one message queue, changing nothing.");
  queue->add_option("id", options->id, "queue id")->required();
  LiveDescribe(queue, &options->live);
  CLI::Option* give =
      queue->add_flag("--give-mutex", options->giveMutex, "give back the mutex of a dead sender");
  CLI::Option* remove =
      queue->add_flag("--remove", options->remove,
                      "remove the queue, in use or not, from the host; asks on a terminal");
  CLI::Option* heal = queue->add_flag("--heal", options->heal, "as of `queues`, for this one");
  CLI::Option* watch = queue->get_option("--watch");
  give->excludes(watch);
  remove->excludes(give)->excludes(watch);
  heal->excludes(give)->excludes(remove)->excludes(watch);
  queue->add_flag("--yes", options->isSure, "remove without asking")->needs(remove);
  queue->add_flag("--force", options->force,
                  "do so although the holder may live or the objects may be another program's");
  queue->callback([options] {
    if (options->force && !options->giveMutex && !options->remove)
      throw CLI::RequiresError("--force", "--give-mutex or --remove");
  });
}

void HostsDescribe(CLI::App* app, HostsOptions* options) {
  CLI::App* hosts = app->add_subcommand("hosts", "Shows a host list and whom it admits.");
  hosts->add_option("type", options->type, "manager, app, managee or peer")
      ->required()
      ->check(CLI::IsMember({"manager", "app", "managee", "peer"}));
  hosts->add_option("address", options->addresses, "addresses or names to ask about");
}

void DecodeDescribe(CLI::App* app, DecodeOptions* options) {
  CLI::App* decode = app->add_subcommand("decode", "Tells what bytes of the wire stand for.");
  decode->add_option("form", options->form, "time, sn (sequence number) or bitmap")
      ->required()
      ->check(CLI::IsMember({"time", "sn", "bitmap"}));
  decode->add_option("hex", options->hex, "the bytes, two hexadecimal digits each")->required();
  decode
      ->add_option_function<std::string>(
          "--order", [options](const std::string& order) { options->isLittle = order == "little"; },
          "big (default) or little: which byte of a word comes first")
      ->check(CLI::IsMember({"big", "little"}));
}

void CommandsDescribe(CLI::App* app, Arguments* arguments) {
  app->require_subcommand(1);
  app->fallthrough();
  app->set_version_flag("--version", std::string("vorndiag ") + VORNDIAG_VERSION);
  app->add_option("-v,--verbosity", arguments->verbosity, "how much the library itself prints")
      ->capture_default_str();
  app->add_flag("--json", arguments->isJson, "print JSON, one object on a line");
  app->add_subcommand("nic", "Shows the interfaces as the library sees them.");
  QueuesDescribe(app, &arguments->queues);
  QueueDescribe(app, &arguments->queue);
  HostsDescribe(app, &arguments->hosts);
  app->add_subcommand("limits", "Shows the limits of the host and how to raise them.");
  DecodeDescribe(app, &arguments->decode);
}

ExitCode CommandRun(const CLI::App& app, const Arguments& arguments) {
  VornUtilsVerbositySet(arguments.verbosity);
  const Format format = arguments.isJson ? Format::JSON : Format::TEXT;
  if (app.got_subcommand("nic"))
    return NicCommand(format);
  if (app.got_subcommand("queues"))
    return QueuesCommand(arguments.queues, format);
  if (app.got_subcommand("queue"))
    return QueueCommand(arguments.queue, format);
  if (app.got_subcommand("limits"))
    return LimitsCommand(format);
  if (app.got_subcommand("decode"))
    return DecodeCommand(arguments.decode, format);
  return HostsCommand(arguments.hosts, format);
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
