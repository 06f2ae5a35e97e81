#ifndef BENCH_SUPPORT_PROCESSES_H
#define BENCH_SUPPORT_PROCESSES_H

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <type_traits>
#include <vector>

/// Throws what the system says about the call that just failed.
[[noreturn]] void SystemFail(const std::string& what);

/// An object that the children of this process share with it.
template <typename Object> class Shared {
  static_assert(std::is_trivially_destructible_v<Object>);

public:
  Shared() {
    void* place =
        mmap(nullptr, sizeof(Object), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED)
      SystemFail("mmap");
    _object = new (place) Object();
  }
  ~Shared() { munmap(_object, sizeof(Object)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  Object* operator->() const { return _object; }

private:
  Object* _object;
};

/// Child processes. Those that are still there at the end, or when their parent dies, are killed.
class Children {
public:
  Children() = default;
  ~Children();
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  /// Forks a child that calls `body`, and is gone with it.
  pid_t Start(const std::function<void()>& body);
  /// Waits for one child. Throws when it failed.
  void Join(pid_t child);
  /// Waits for all of them.
  void JoinAll();

private:
  std::vector<pid_t> _children;
};

/// Where children wait until all are there: each sleeps, so that none is busy before the start.
class Gate {
public:
  Gate();
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  /// In a child: says that it is there, and waits for `Open`.
  void Pass();
  /// In the parent: waits for `count` children and lets them through. A gate opens once.
  void Open(int count);

private:
  int _arrived[2];
  int _opened[2];
};

/// What the calling process has used so far.
struct Usage {
  double seconds = 0;   ///< of processors
  double switches = 0;  ///< voluntary ones
};
Usage UsageGet();

#endif
