#include "StopSignal.h"

#include <csignal>
#include <initializer_list>

#include <unistd.h>

namespace {

volatile std::sig_atomic_t stopRequested = 0;

// A signal that comes between a look at `stopRequested` and the wait that follows would end no
// wait. So it is repeated every second until the program has ended. alarm() may be called here;
// printing, allocating and the library's functions may not.
extern "C" void StopNote(int /*signal*/) {
  stopRequested = 1;
  alarm(1);
}

}  // namespace

void StopSignalsCatch() {
  struct sigaction action = {};
  action.sa_handler = StopNote;
  // For output that goes on where it was. The wait for a semaphore ends all the same.
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGALRM})
    sigaction(signal, &action, nullptr);
}

bool StopRequested() { return stopRequested != 0; }
