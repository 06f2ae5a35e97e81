// The other end of QueuePeerTest, built for a 32-bit host:
//   width_peer queue FROM_ID TO_ID COUNT   puts each message, reversed, into another queue
//   width_peer datagram PORT               exchanges datagrams with that port of this host
#include "ipc/VORNShmMsgQ.h"
#include "ipc/WireForms.h"

#include <algorithm>
#include <cstdlib>

#include <sched.h>

namespace {

int MessagesReverse(int from, int to, int count) {
  ShmMsgQImpl source(1, from);
  ShmMsgQImpl target(1, to);
  char text[4096];
  while (count-- > 0) {
    const int length = source.Recv(text, sizeof text);
    if (length < 0)
      return 1;
    std::reverse(text, text + length);
    while (target.Send(text, length) == 0)
      sched_yield();
  }
  return 0;
}

int DatagramsExchange(int port) {
  VORNDGram endpoint(0, 0, nullptr, -1);
  KELNetioAddr peer;
  KelNetioAddrInitialize(&peer, 0x7F000001, port);
  endpoint.bind(&endpoint, 0x7F000001, 0);
  return WireFormsExchange(endpoint, peer, true) == DATAGRAM_COUNT ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  static_assert(sizeof(void*) == 4);
  if (argc == 5)
    return MessagesReverse(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]));
  return argc == 3 ? DatagramsExchange(std::atoi(argv[2])) : 2;
}
