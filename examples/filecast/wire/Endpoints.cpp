#include "wire/Endpoints.h"

#include "wire/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace {

// A window of samples and more, whatever the system makes of it; a burst must fit.
constexpr int BUFFER_SIZE = 1 << 20;
constexpr int BUFFER_OPTIONS = KEL_DGRAM_OPT_SNDBUF | KEL_DGRAM_OPT_RCVBUF;

// What the system counts for a datagram of a full frame: the frame's buffer and what describes it.
constexpr int DATAGRAM_COST = 2560;

VORNDGramProperties* BuffersGet() {
  static VORNDGramProperties properties{BUFFER_SIZE, BUFFER_SIZE};
  return &properties;
}

// The system makes less of BUFFER_SIZE than was asked for, as net.core.rmem_max says.
std::uint32_t SampleRoomGet(VORNDGram* endpoint) {
  int size = 0;
  socklen_t length = sizeof size;
  const bool isKnown =
      endpoint->IsValid() != 0 &&
      getsockopt(endpoint->socketGet(endpoint), SOL_SOCKET, SO_RCVBUF, &size, &length) == 0;
  return isKnown ? static_cast<std::uint32_t>(std::max(1, size / DATAGRAM_COST)) : 1;
}

void MulticastRequire() {
  if (VORNDGramClass::NICIsMulticastSupported() == 0)
    throw Failure(
        ExitCode::NO_MULTICAST,
        "no usable interface can multicast; to send by unicast, use --to of send and --at of "
        "recv");
}

VORNMulticastProperties MulticastGet(bool isMulticast, int ttl) {
  if (isMulticast)
    MulticastRequire();
  VORNMulticastProperties properties;
  VornMulticastPropertiesDefaultGet(&properties);
  properties.enable = isMulticast ? 1 : 0;
  properties.ttl = static_cast<unsigned char>(ttl);
  return properties;
}

// `option` is the one that asked for the place.
[[noreturn]] void BindFailureThrow(const char* option, const AddressPort& place, int error) {
  const char* hint =
      error == EADDRNOTAVAIL ? "this host does not have that address" : std::strerror(error);
  throw Failure(error == EADDRINUSE ? ExitCode::PORT_IN_USE : ExitCode::NETWORK_FAILED,
                std::string(option) + ": cannot use " +
                    (place.port != 0 ? AddressPortText(place) : AddressText(place.address)) + ": " +
                    hint);
}

// Binds to `place`, with port 0 to one of the system's choice. Returns the port.
int EndpointBind(VORNDGram* endpoint, const char* option, const AddressPort& place) {
  if (endpoint->IsValid() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "the system gives no socket");
  const int port = endpoint->bind(endpoint, place.address, place.port);
  if (port == 0)
    BindFailureThrow(option, place, errno);
  return port;
}

}  // namespace

InterfaceTable::InterfaceTable(PeerList* peers) {
  if (KelNetioInit() == 0 || VORNDGramClass::NICInitialize() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "the network's interfaces cannot be read");
  peers->InterfacesChoose();
}

InterfaceTable::~InterfaceTable() { VORNDGramClass::NICDestroy(); }

SendEndpoints::SendEndpoints(const AddressPort& group, const std::vector<AddressPort>& to, int ttl)
    : SendEndpoints(group, to, MulticastGet(to.empty(), ttl)) {}

SendEndpoints::SendEndpoints(const AddressPort& group, const std::vector<AddressPort>& to,
                             VORNMulticastProperties multicast)
    : _data(&multicast, BUFFER_OPTIONS, BuffersGet(), -1),
      _answers(0, BUFFER_OPTIONS, BuffersGet(), -1) {
  if (_data.IsValid() == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "cannot prepare the network's interfaces for sending");
  _answerPort = EndpointBind(&_answers, "answers", AddressPort());
  for (const AddressPort& place : to)
    KelNetioAddrInitialize(&_destinations.emplace_back(), place.address, place.port);
  if (_destinations.empty())
    KelNetioAddrInitialize(&_destinations.emplace_back(), group.address, group.port);
}

bool SendEndpoints::Send(VORNCDRStream* stream) {
  bool anyWent = false;
  for (KELNetioAddr& destination : _destinations)
    anyWent |= _data.SendTo(&destination, stream) != 0;
  return anyWent;
}

ReceiveEndpoints::ReceiveEndpoints(const AddressPort& group, const AddressPort& at,
                                   unsigned int from)
    : _data(at.address == 0 ? 1 : 0, BUFFER_OPTIONS, BuffersGet(), -1),
      _answers(0, BUFFER_OPTIONS, BuffersGet(), -1), _room(SampleRoomGet(&_data)) {
  EndpointBind(&_answers, from != 0 ? "--from" : "--at", {from != 0 ? from : at.address, 0});
  if (at.address != 0) {
    EndpointBind(&_data, "--at", at);
    return;
  }
  MulticastRequire();
  if (_data.RecvMulticastInitialize(group.port) == 0)
    BindFailureThrow("--group", {0, group.port}, errno);
  if (_data.RecvMulticastGroupJoin(group.address) == 0)
    throw Failure(ExitCode::NETWORK_FAILED, "--group: cannot join " + AddressText(group.address) +
                                                ": " + std::strerror(errno));
}

bool ReceiveEndpoints::Answer(const AddressPort& to, VORNCDRStream* stream) {
  KELNetioAddr destination;
  KelNetioAddrInitialize(&destination, to.address, to.port);
  return _answers.SendTo(&destination, stream) != 0;
}
