#include "Endpoints.h"

#include "ExitCode.h"

#include <cerrno>
#include <cstring>

namespace {

// A window of samples and more, whatever the system makes of it; a burst must fit.
constexpr int BUFFER_SIZE = 1 << 20;
constexpr int BUFFER_OPTIONS = KEL_DGRAM_OPT_SNDBUF | KEL_DGRAM_OPT_RCVBUF;

VORNDGramProperties* BuffersGet() {
  static VORNDGramProperties properties{BUFFER_SIZE, BUFFER_SIZE};
  return &properties;
}

VORNMulticastProperties* MulticastGet(const Options& options, VORNMulticastProperties* result) {
  VornMulticastPropertiesDefaultGet(result);
  result->enable = options.to.empty() ? 1 : 0;
  result->ttl = static_cast<unsigned char>(options.ttl);
  return result;
}

void MulticastRequire() {
  if (VORNDGramClass::NICIsMulticastSupported() == 0)
    throw Failure(ExitCode::NO_MULTICAST,
                  "no interface that may be used can multicast; unicast is possible: see --to "
                  "of send and --at of recv");
}

[[noreturn]] void BindFailureThrow(const AddressPort& place, int error) {
  throw Failure(error == EADDRINUSE ? ExitCode::PORT_IN_USE : ExitCode::NETWORK_FAILED,
                "cannot receive at " + AddressPortText(place) + ": " + std::strerror(error));
}

// Binds to `place`, with port 0 to one of the system's choice. Returns the port.
int EndpointBind(VORNDGram* endpoint, const AddressPort& place) {
  if (endpoint->IsValid() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "the system has no socket to give");
  const int port = endpoint->bind(endpoint, place.address, place.port);
  if (port == 0)
    BindFailureThrow(place, errno);
  return port;
}

}  // namespace

InterfaceTable::InterfaceTable(Peers* peers) {
  if (KelNetioInit() == 0 || VORNDGramClass::NICInitialize() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "the network's interfaces cannot be read");
  peers->InterfacesChoose();
}

InterfaceTable::~InterfaceTable() { VORNDGramClass::NICDestroy(); }

SenderEndpoints::SenderEndpoints(const Options& options)
    : _data(
          [&options] {
            static VORNMulticastProperties multicast;
            if (options.to.empty())
              MulticastRequire();
            return MulticastGet(options, &multicast);
          }(),
          BUFFER_OPTIONS, BuffersGet(), -1),
      _answers(0, BUFFER_OPTIONS, BuffersGet(), -1) {
  if (_data.IsValid() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "cannot prepare the network's interfaces for sending");
  _answerPort = EndpointBind(&_answers, AddressPort());
  for (const AddressPort& place : options.to)
    KelNetioAddrInitialize(&_destinations.emplace_back(), place.address, place.port);
  if (_destinations.empty())
    KelNetioAddrInitialize(&_destinations.emplace_back(), options.group.address,
                           options.group.port);
}

bool SenderEndpoints::Send(VORNCDRStream* stream) {
  bool allWent = true;
  for (KELNetioAddr& destination : _destinations)
    allWent = _data.SendTo(&destination, stream) != 0 && allWent;
  return allWent;
}

ReceiverEndpoints::ReceiverEndpoints(const Options& options)
    : _data(options.at.address == 0 ? 1 : 0, BUFFER_OPTIONS, BuffersGet(), -1),
      _answers(0, BUFFER_OPTIONS, BuffersGet(), -1) {
  const unsigned int from = options.from != 0 ? options.from : options.at.address;
  EndpointBind(&_answers, {from, 0});
  if (options.at.address != 0) {
    EndpointBind(&_data, options.at);
    return;
  }
  MulticastRequire();
  if (_data.RecvMulticastInitialize(options.group.port) == 0)
    BindFailureThrow({0, options.group.port}, errno);
  if (_data.RecvMulticastGroupJoin(options.group.address) == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "cannot join the group " +
                                                AddressText(options.group.address) + ": " +
                                                std::strerror(errno));
}

bool ReceiverEndpoints::Answer(const AddressPort& to, VORNCDRStream* stream) {
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, to.address, to.port);
  return _answers.SendTo(&destination, stream) != 0;
}
