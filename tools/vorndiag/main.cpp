#include "net/miscIPUtils.h"
#include "utils/VORNUtilsDiag.h"
#include "vorndiag/Commands.h"
#include "vorndiag/McastProbe.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

struct Arguments {
  int verbosity = 0;
  bool isJson = false;
  QueuesOptions queues;
  QueueOptions queue;
  HostsOptions hosts;
  DecodeOptions decode;
  McastOptions mcast;
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

// "239.1.2.3:7400"; the parts that are missing stay as they are.
std::string GroupRead(const std::string& text, McastOptions* options) {
  char address[VORN_ADDRESS_TEXT_SIZE];
  const std::size_t colon = text.find(':');
  const std::string group = text.substr(0, colon);
  const unsigned int number = VornStringToAddress(group.c_str());
  if (HostIPIsMulticastAddress(number) == 0 || group != VornAddressToString(number, address))
    return "a group is an address from 224.0.0.0 to 239.255.255.255";
  options->group = number;
  if (colon == std::string::npos)
    return "";
  const std::string port = text.substr(colon + 1);
  options->port = port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos
                      ? std::atoi(port.c_str())
                      : 0;
  return options->port > 0 && options->port <= 65535 ? "" : "a port is a number from 1 to 65535";
}

std::string PeerRead(const std::string& text, McastOptions* options) {
  options->peer = VornStringToAddress(text.c_str());
  return options->peer != 0 ? "" : "there is no such host";
}

void McastSendDescribe(CLI::App* action, McastOptions* options) {
  action->add_option("--count", options->count, "datagrams from each interface")
      ->check(CLI::Range(1, McastProbe::COUNT_MAX))
      ->capture_default_str();
  action->add_option("--interval", options->interval, "seconds between two datagrams")
      ->check(CLI::Range(0.001, 60.0))
      ->capture_default_str();
  action->add_option("--ttl", options->timeToLive, "1 stays on the local network")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  action->add_flag_callback(
      "--no-loopback", [options] { options->loopback = false; },
      "do not let this host hear what it sends");
}

CLI::App* McastActionDescribe(CLI::App* mcast, const std::string& name, const std::string& text,
                              McastOptions* options) {
  CLI::App* action = mcast->add_subcommand(name, text);
  action->add_option("group", "GROUP or GROUP:PORT, otherwise 239.255.86.78:7478")
      ->check([options](const std::string& group) { return GroupRead(group, options); });
  action->add_option("--peer", "the other host, whose routes and answers are then judged")
      ->check([options](const std::string& peer) { return PeerRead(peer, options); });
  action->add_option("--hosts", options->hosts, "prune by this host list, as programs do")
      ->check(CLI::IsMember({"manager", "app", "managee", "peer"}));
  action->callback([options, name] { options->action = name; });
  return action;
}

void McastDescribe(CLI::App* app, McastOptions* options) {
  CLI::App* mcast = app->add_subcommand("mcast", "Tries multicast with the library's endpoints.");
  mcast->require_subcommand(1);
  McastSendDescribe(McastActionDescribe(mcast, "send", "Sends from each interface.", options),
                    options);
  McastActionDescribe(mcast, "recv", "Receives on each interface, and answers `check`.", options)
      ->add_option("--seconds", options->seconds, "how long; otherwise until Ctrl-C")
      ->check(CLI::Range(0.1, 86400.0));
  CLI::App* check = McastActionDescribe(
      mcast, "check", "Sends and receives, here and with hosts that run recv.", options);
  McastSendDescribe(check, options);
  check->add_option("--wait", options->wait, "seconds for what comes late")
      ->check(CLI::Range(0.0, 60.0))
      ->capture_default_str();
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
  McastDescribe(app, &arguments->mcast);
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
  if (app.got_subcommand("mcast"))
    return McastCommand(arguments.mcast, format);
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
