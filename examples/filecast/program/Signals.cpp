#include "program/Signals.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t signalSeen = 0;

extern "C" void SignalNote(int signal) { signalSeen = signal; }

}  // namespace

void SignalsCatch() {
  struct sigaction note = {};
  note.sa_handler = SignalNote;  // without SA_RESTART: the wait for datagrams ends at once
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaction(signal, &note, nullptr);
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;  // these two are seen as failed writes
  for (const int signal : {SIGPIPE, SIGXFSZ})
    sigaction(signal, &ignore, nullptr);
}

bool IsInterrupted() { return signalSeen != 0; }
