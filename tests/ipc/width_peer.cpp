// The other end of QueuePeerTest, built for a 32-bit host: width_peer FROM_ID TO_ID COUNT puts what
// each message holds, written in the other byte order, into another queue.
#include "ipc/VORNShmMsgQ.h"
#include "ipc/WireForms.h"

#include <cstdlib>

#include <sched.h>

int main(int, char** argv) {
  static_assert(sizeof(void*) == 4);
  ShmMsgQImpl source(1, std::atoi(argv[1]));
  ShmMsgQImpl target(1, std::atoi(argv[2]));
  for (int count = std::atoi(argv[3]); count > 0; --count) {
    char text[512];
    const int length = source.Recv(text, sizeof text);
    if (length < 0)
      return 1;
    WireForms forms(0);
    forms.Read({text, static_cast<std::size_t>(length)}, VORN_CDR_BIG_ENDIAN);
    const std::string answer = forms.Text(VORN_CDR_LITTLE_ENDIAN);
    while (target.Send(answer.data(), static_cast<int>(answer.size())) == 0)
      sched_yield();
  }
  return 0;
}
