#ifndef SUPPORT_SCRIPTED_LAYER_H
#define SUPPORT_SCRIPTED_LAYER_H

#include "platform/KelDGram.h"
#include "platform/KelNtpTime.h"

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// The lower layer as a script: it does what a test tells it to and writes down what it was asked.
/// A test executable links the library's objects with this in place of the real lower layer; CDR
/// stream, containers, addresses and printing are the real ones.
struct ScriptedLayer {
  ScriptedLayer();
  /// Everything that KelDebugPrint was given, formatted, one piece after the other.
  std::string printed;

  /// Calls in order, for example "ADD_MEMBERSHIP 239.1.1.1 10.0.0.1", "bind 0 7400", "sendTo 3 on
  /// 5". A descriptor that is not -1 is named behind "on". Clock and mutex calls are only counted,
  /// since threads make them.
  std::vector<std::string> calls;

  // The clock: what the next reading is, and what happens during it.
  std::function<KELNtpTime()> clock = [] { return KELNtpTime{}; };
  KELNtpTime rollover;
  std::atomic<int> clockReadings{0};

  std::atomic<int> mutexTakes{0}, mutexGives{0}, threadLocks{0}, threadUnlocks{0};
  int mutexes = 0;  ///< made and not deleted

  std::set<int> refusedPriorities;

  int descriptor = -1;  ///< what a new socket record holds; if not -1, one more for each
  int openSockets = 0;
  std::map<int, std::vector<int>> optionErrno;  ///< per option code, errno of each call; 0: success
  std::function<int(int port)> bindResult = [](int port) { return port != 0 ? port : 50000; };
  std::vector<int> sendResults;  ///< result of each send; 1 when exhausted
};

/// The script in force. `ScriptReset` puts a fresh one in its place and the verbosity back to 0.
ScriptedLayer& Script();
void ScriptReset();
/// The calls since the last look, "; " between them.
std::string CallsDrain();

#endif
