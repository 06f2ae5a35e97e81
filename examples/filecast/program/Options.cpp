#include "program/Options.h"

#include "net/miscIPUtils.h"
#include "wire/ExitCode.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <sstream>

namespace {

constexpr double LONGEST_TIME = 86400;  // seconds

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

// Makes an option that takes "ADDRESS[:PORT]"; the port defaults to the group's. `accept` returns
// what is wrong with a place, or null.
CLI::Option* AddressOptionAdd(CLI::App* app, const std::string& name, const std::string& help,
                              std::function<const char*(const AddressPort&)> accept) {
  return app
      ->add_option_function<std::vector<std::string>>(
          name,
          [name, accept = std::move(accept)](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              AddressPort place;
              const char* complaint = AddressPortRead(text, &place);
              if (complaint == nullptr)
                complaint = accept(place);
              if (complaint != nullptr)
                throw CLI::ValidationError(name, text + " " + complaint);
            }
          },
          help)
      ->type_name("ADDRESS[:PORT]");
}

const char* UnicastCheck(const AddressPort& place) {
  return HostIPIsMulticastAddress(place.address) != 0
             ? "is a multicast address; those are for --group"
             : nullptr;
}

template <typename Number> std::string NumberText(Number number) {
  std::ostringstream text;
  text << number;
  return text.str();
}

// Makes an option that takes a number from `low` to `high`, which its help says, with the default.
template <typename Number>
void NumberOptionAdd(CLI::App* app, const std::string& name, Number* value, Number low, Number high,
                     const std::string& help) {
  app->add_option(name, *value,
                  help + " (" + NumberText(low) + " to " + NumberText(high) + ", default " +
                      NumberText(*value) + ")")
      ->check(CLI::Range(low, high).description(""))
      ->type_name("N");
}

void CommonOptionsAdd(CLI::App* app, Options* options) {
  AddressOptionAdd(app, "--group",
                   "Multicast group (default " + AddressPortText(options->group) + ")",
                   [options](const AddressPort& place) -> const char* {
                     if (HostIPIsMulticastAddress(place.address) == 0)
                       return "is no multicast address";
                     options->group.address = place.address;
                     options->group.port = place.port != 0 ? place.port : options->group.port;
                     return nullptr;
                   })
      ->expected(1);
  app->add_flag("--peers", options->peers,
                "Deal only with the hosts that the file VORN_PEER_HOSTS in this folder, or the "
                "environment variable of that name, lists");
  NumberOptionAdd(app, "--patience", &options->patience, 0.1, LONGEST_TIME,
                  "Seconds of silence after which the other side is given up");
  NumberOptionAdd(app, "--drop", &options->drop, 0.0, 0.9,
                  "Share of the datagrams to lose on purpose");
  NumberOptionAdd(app, "--seed", &options->seed, std::uint32_t{0}, UINT32_MAX,
                  "Seed of the losses: the same seed loses the same datagrams");
  NumberOptionAdd(app, "--verbosity", &options->verbosity, -1, 2,
                  "What the library says; -1: nothing");
}

void SendOptionsAdd(CLI::App* app, Options* options) {
  app->add_option("FILE", options->path, "The file to send")->required()->type_name("");
  CommonOptionsAdd(app, options);
  NumberOptionAdd(app, "--wait", &options->wait, 0.0, LONGEST_TIME,
                  "Seconds to wait for receivers; 0: as --patience");
  AddressOptionAdd(app, "--to",
                   "Send to this address instead of to the group; may be repeated, for up to 64",
                   [options](const AddressPort& place) {
                     options->to.push_back(place);
                     return UnicastCheck(place);
                   })
      ->expected(1, 64);
  NumberOptionAdd(app, "--receivers", &options->receivers, 1, 64,
                  "Receivers to wait for before starting");
  NumberOptionAdd(app, "--rate", &options->rate, 0.01, 1000.0,
                  "Megabytes of samples in a second at most, repairs included");
  app->add_option("--name", options->name,
                  "Name of the file at the receivers, up to 255 bytes (default: its own)")
      ->type_name("NAME");
  NumberOptionAdd(app, "--ttl", &options->ttl, 1, 255,
                  "Networks that a datagram may cross; 1: only the local one");
  app->callback([options] { options->command = Options::Command::SEND; });
}

void ReceiveOptionsAdd(CLI::App* app, Options* options) {
  app->add_option("DIR", options->folder, "The folder to receive into")->required()->type_name("");
  CommonOptionsAdd(app, options);
  NumberOptionAdd(app, "--wait", &options->wait, 0.0, LONGEST_TIME,
                  "Seconds to wait for a sender; 0: for ever");
  AddressOptionAdd(app, "--at", "Receive at this address of this host instead of from the group",
                   [options](const AddressPort& place) {
                     options->at = place;
                     return UnicastCheck(place);
                   })
      ->expected(1);
  AddressOptionAdd(
      app, "--from", "Address of this host to send answers from (default: the system's choice)",
      [options](const AddressPort& place) {
        options->from = place.address;
        return place.port != 0 ? "has a port, and the system chooses that" : UnicastCheck(place);
      })
      ->expected(1)
      ->type_name("ADDRESS");
  NumberOptionAdd(app, "--files", &options->files, 1, 1000000,
                  "Files to receive before ending, whole or not");
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
