#ifndef CONFORMANCE_SOCKET_H
#define CONFORMANCE_SOCKET_H

#include "Clause.h"
#include "LayerObjects.h"

#include "platform/KelDGram.h"

#include <string>

#include <netinet/in.h>
#include <sys/socket.h>

constexpr unsigned int LOOPBACK = 0x7F000001, GROUP = 0xEF010203;

/// An object in place, as an endpoint of the library has it.
struct Socket {
  KELDGram dgram;
  Socket() {
    if (KelDGramInitialize(&dgram) == 0)
      ClauseSkip("KelDGramInitialize gives no socket");
  }
  int DescriptorGet() { return dgram.socketGet(&dgram); }
  int Bind(unsigned int address, int port) { return dgram.bind(&dgram, address, port); }
  bool Send(unsigned int address, int port, std::string text) {
    return dgram.sendTo(&dgram, AddressNew(address, port), text.data(),
                        static_cast<int>(text.size())) != 0;
  }
  template <typename Value> int OptionSet(int code, Value value) {
    return dgram.optionSet(&dgram, code, &value, sizeof value);
  }
  int MembershipSet(int code) {
    return OptionSet(code, ip_mreq{{htonl(GROUP)}, {htonl(LOOPBACK)}});
  }
};

/// Binds to a port that the system chooses.
int PortTake(Socket* socket, unsigned int address);

/// One that the layer knows nothing of.
int SystemSocketGet();

sockaddr_in NameGet(int descriptor);
int PortGet(int descriptor);

template <typename Value> Value OptionGet(int descriptor, int level, int name) {
  Value value{};
  socklen_t size = sizeof value;
  ClauseRequire("the socket's option", getsockopt(descriptor, level, name, &value, &size) == 0);
  return value;
}

/// The next datagram, or "none" if none comes.
std::string Received(int descriptor, int* port = nullptr);
/// Whether no datagram comes, although it has time to.
bool NoneIsReceived(int descriptor);

#endif
