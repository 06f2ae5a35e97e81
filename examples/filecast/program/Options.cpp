#include "program/Options.h"

#include "net/miscIPUtils.h"
#include "wire/ExitCode.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

std::string ExitCodesText() {
  std::string text = "Exit codes:\n";
  for (const ExitCodeLine& line : EXIT_CODES) {
    char row[128];
    std::snprintf(row, sizeof row, "  %2d %-18s %s\n", static_cast<int>(line.code), line.name,
                  line.meaning);
    text += row;
  }
  return text;
}

// Makes an option that takes "ADDRESS[:PORT]"; the port defaults to the group's.
CLI::Option* AddressOptionAdd(CLI::App* app, const std::string& name, const std::string& help,
                              std::function<bool(const AddressPort&)> accept) {
  return app
      ->add_option_function<std::vector<std::string>>(
          name,
          [name, accept = std::move(accept)](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              AddressPort place;
              if (!AddressPortRead(text, &place) || !accept(place))
                throw CLI::ValidationError(name, "cannot use the address " + text);
            }
          },
          help)
      ->type_name("ADDRESS[:PORT]");
}

void CommonOptionsAdd(CLI::App* app, Options* options) {
  AddressOptionAdd(app, "--group", "Multicast group (default 239.255.77.1:7411)",
                   [options](const AddressPort& place) {
                     options->group.address = place.address;
                     options->group.port = place.port != 0 ? place.port : options->group.port;
                     return HostIPIsMulticastAddress(place.address) != 0;
                   })
      ->expected(1);
  app->add_flag("--peers", options->peers,
                "Deal only with the hosts that the file VORN_PEER_HOSTS in this folder, or the "
                "environment variable of that name, lists");
  app->add_option("--patience", options->patience,
                  "Seconds of silence after which the other side is given up")
      ->check(CLI::Range(0.1, 86400.0))
      ->capture_default_str();
  app->add_option("--wait", options->wait, "Seconds to wait for the other side to appear")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  app->add_option("--drop", options->drop, "Share of the datagrams to lose on purpose, 0 to 0.9")
      ->check(CLI::Range(0.0, 0.9));
  app->add_option("--seed", options->seed,
                  "Seed of the losses: the same seed loses the same datagrams")
      ->capture_default_str();
  app->add_option("--verbosity", options->verbosity, "What the library says: -1 (nothing) to 2")
      ->check(CLI::Range(-1, 2))
      ->capture_default_str();
}

void SendOptionsAdd(CLI::App* app, Options* options) {
  app->add_option("FILE", options->path, "The file to send")->required();
  CommonOptionsAdd(app, options);
  AddressOptionAdd(app, "--to", "Send to this address instead of to the group; may be repeated",
                   [options](const AddressPort& place) {
                     options->to.push_back(place);
                     return HostIPIsMulticastAddress(place.address) == 0;
                   })
      ->expected(1, 64);
  app->add_option("--receivers", options->receivers, "Receivers to wait for before starting")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app->add_option("--rate", options->rate, "Megabytes in a second, 0.01 to 1000")
      ->check(CLI::Range(0.01, 1000.0))
      ->capture_default_str();
  app->add_option("--name", options->name, "Name of the file at the receivers");
  app->add_option("--ttl", options->ttl,
                  "Networks that a datagram may cross; 1: only the local one")
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  app->callback([options] { options->command = Options::Command::SEND; });
}

void ReceiveOptionsAdd(CLI::App* app, Options* options) {
  app->add_option("DIR", options->folder, "The folder to receive into")->required();
  CommonOptionsAdd(app, options);
  AddressOptionAdd(app, "--at", "Receive at this address of this host instead of from the group",
                   [options](const AddressPort& place) {
                     options->at = place;
                     return HostIPIsMulticastAddress(place.address) == 0;
                   })
      ->expected(1);
  AddressOptionAdd(app, "--from", "Address of this host to send answers from",
                   [options](const AddressPort& place) {
                     options->from = place.address;
                     return place.port == 0;
                   })
      ->expected(1)
      ->type_name("ADDRESS");
  app->add_option("--files", options->files, "Files to receive before ending")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  app->callback([options] { options->command = Options::Command::RECEIVE; });
}

}  // namespace

bool OptionsRead(int argumentCount, char** arguments, Options* options, int* exitCode) {
  CLI::App app("Sends a file to many hosts at once, and repairs what the network loses",
               "filecast");
  app.require_subcommand(1);
  app.footer(ExitCodesText());
  SendOptionsAdd(app.add_subcommand("send", "Send FILE"), options);
  ReceiveOptionsAdd(app.add_subcommand("recv", "Receive into DIR"), options);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    const bool isHelp = error.get_exit_code() == 0;
    app.exit(error);
    *exitCode = static_cast<int>(isHelp ? ExitCode::OK : ExitCode::USAGE);
    return false;
  }
  for (AddressPort& place : options->to)
    place.port = place.port != 0 ? place.port : options->group.port;
  if (options->at.port == 0)
    options->at.port = options->group.port;
  if (options->command == Options::Command::SEND && options->wait == 0)
    options->wait = options->patience;
  return true;
}
