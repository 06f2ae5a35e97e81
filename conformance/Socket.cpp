#include "Socket.h"

#include <poll.h>

int PortTake(Socket* socket, unsigned int address) {
  const int port = socket->Bind(address, 0);
  ClauseRequire("a chosen port", port > 0);
  ClauseRequire("the socket's own port", PortGet(socket->DescriptorGet()) == port);
  return port;
}

int SystemSocketGet() {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (descriptor == -1)
    ClauseSkip("the system gives no socket");
  return descriptor;
}

sockaddr_in NameGet(int descriptor) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  ClauseRequire("the socket's name",
                getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &size) == 0);
  return name;
}

int PortGet(int descriptor) { return ntohs(NameGet(descriptor).sin_port); }

std::string Received(int descriptor, int* port) {
  if (!DatagramAwait(descriptor))
    return "none";
  std::string text(70000, '\0');
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t length =
      recvfrom(descriptor, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  if (port != nullptr)
    *port = ntohs(from.sin_port);
  return text;
}

bool NoneIsReceived(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return poll(&wait, 1, 200) == 0;
}
