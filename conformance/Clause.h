#ifndef CONFORMANCE_CLAUSE_H
#define CONFORMANCE_CLAUSE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <pthread.h>

/// One promise of a lower layer. Each clause is checked in a process of its own, forked before
/// anything of the layer was called: what one clause breaks does not reach the next one, and a
/// crash or an endless wait is an answer like any other. So a check may change its process as it
/// likes (limits, user, namespaces, standard output) and need not clean up.
struct Clause {
  const char* symbol;  ///< the operation, as a programmer writes it
  const char* text;    ///< what it promises
  bool (*isKept)();
};
using Clauses = std::vector<Clause>;

/// One list for each neighbour: what the library relies on.
Clauses ClockClauses();
Clauses LockClauses();
Clauses DebugPrintClauses();
Clauses AddressClauses();
Clauses DGramClauses();
Clauses OptionClauses();
Clauses StreamClauses();
Clauses ListClauses();
Clauses TableClauses();
/// What the headers promise beyond that, to programs. The library calls none of it.
Clauses ProgramClauses();
Clauses ProgramContainerClauses();

/// Ends the check of a clause that cannot be checked here, and says why.
[[noreturn]] void ClauseSkip(const std::string& reason);
/// Ends the check of a clause that is broken, and names its part that is not kept.
[[noreturn]] void ClauseBreak(const std::string& part);
/// For a clause with several parts: goes on to the next one only if this one is kept.
inline void ClauseRequire(const std::string& part, bool isKept) {
  if (!isKept)
    ClauseBreak(part);
}

/// Seconds of the host's own clock, from some start.
double SecondsGet();
void MillisecondsSleep(int milliseconds);

/// Whether no more memory is in use after many rounds than after the first ones: a host keeps some
/// freed blocks back, and a layer may keep some objects.
bool MemoryIsGivenBack(const std::function<void()>& round);

/// Waits for a datagram: a busy host may deliver it after the call that sent it has returned. False
/// if none comes.
bool DatagramAwait(int descriptor);

/// An object between two rows of known bytes: whoever has another idea of its size writes there.
template <typename Object> class Guarded {
public:
  Guarded() {
    _before.fill(FILLING);
    _after.fill(FILLING);
  }
  bool IsIntact() const {
    std::array<std::uint64_t, 8> untouched;
    untouched.fill(FILLING);
    return _before == untouched && _after == untouched;
  }

private:
  static constexpr std::uint64_t FILLING = 0x5AA55AA55AA55AA5;
  std::array<std::uint64_t, 8> _before;

public:
  Object object{};

private:
  std::array<std::uint64_t, 8> _after;
};

/// Work on a thread of its own, which may wait for ever: the end of the process ends it. What the
/// work refers to has to live as long, so capture copies.
class Helper {
public:
  explicit Helper(std::function<void()> work);
  /// Whether the work, which has begun, does not end although it has time to.
  bool IsWaiting() const;
  /// Waits for the end of the work; false if it does not come.
  bool HasEnded() const;
  /// Interrupts the thread by a signal whose handler does nothing.
  void Interrupt() const;

private:
  struct State {
    std::atomic<bool> hasBegun{false}, hasEnded{false};
  };
  std::shared_ptr<State> _state = std::make_shared<State>();
  pthread_t _thread{};
};

/// Runs `work` on `count` threads at the same time and waits for all of them. Each gets its number.
void ThreadsRun(int count, const std::function<void(int number)>& work);

#endif
