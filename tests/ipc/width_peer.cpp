// The other end of QueuePeerTest, built for a 32-bit host. It writes what each message holds in the
// other byte order:
//   width_peer FROM_ID TO_ID COUNT SIZE   from one queue into another, which it makes
//   width_peer PORT COUNT                 in datagrams from and to this port of the host
#include "ipc/VORNShmMsgQ.h"
#include "ipc/WireForms.h"
#include "net/VORNDGram.h"

#include <cstdlib>

#include <sched.h>

namespace {

std::string Answer(const char* text, int length) {
  WireForms forms(0);
  forms.Read({text, static_cast<std::size_t>(length)}, VORN_CDR_BIG_ENDIAN);
  return forms.Text(VORN_CDR_LITTLE_ENDIAN);
}

int MessagesAnswer(int from, int to, int count, int size) {
  ShmMsgQImpl source(1, from);
  ShmMsgQImpl target(1, to, static_cast<unsigned int>(size));
  for (char text[512]; count > 0; --count) {
    const int length = source.Recv(text, sizeof text);
    if (length < 0)
      return 1;
    const std::string answer = Answer(text, length);
    while (target.Send(answer.data(), static_cast<int>(answer.size())) == 0)
      sched_yield();
  }
  return 0;
}

// An answer that nobody has asked for tells where this end is.
int DatagramsAnswer(int port, int count) {
  VORNDGram endpoint(0, 0, nullptr, -1);
  KELNetioAddr peer;
  KelNetioAddrInitialize(&peer, 0x7F000001, port);
  endpoint.bind(&endpoint, 0x7F000001, 0);
  WireFormsSend(endpoint, &peer, "");
  for (; count > 0; --count) {
    const std::string text = WireFormsReceive(endpoint, &peer);
    WireFormsSend(endpoint, &peer, Answer(text.data(), static_cast<int>(text.size())));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  static_assert(sizeof(void*) == 4);
  const int first = std::atoi(argv[1]), second = std::atoi(argv[2]);
  return argc == 3 ? DatagramsAnswer(first, second)
                   : MessagesAnswer(first, second, std::atoi(argv[3]), std::atoi(argv[4]));
}
