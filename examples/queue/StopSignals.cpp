#include "StopSignals.h"

#include <csignal>
#include <initializer_list>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

constexpr int INTERRUPTION = SIGUSR1;

sigset_t StopSignalsGet() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&signals, signal);
  return signals;
}

extern "C" void NothingDo(int /*signal*/) {}

}  // namespace

void StopSignalsBlock() {
  const sigset_t signals = StopSignalsGet();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  struct sigaction action = {};
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  action.sa_handler = NothingDo;  // and no SA_RESTART: to end a wait is all that it is for
  sigaction(INTERRUPTION, &action, nullptr);
}

int StopDescriptorNew() {
  const sigset_t signals = StopSignalsGet();
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

void StopAwait() {
  const sigset_t signals = StopSignalsGet();
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) {
  }
}

// The same signal that a user would send: there is one thing to wait for.
StopAtEnd::~StopAtEnd() { kill(getpid(), SIGTERM); }

void WaitInterrupt(pthread_t thread) { pthread_kill(thread, INTERRUPTION); }
