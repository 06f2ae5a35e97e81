#ifndef IPC_IPC_HOST_H
#define IPC_IPC_HOST_H

#include "ipc/VORNSemaphores.h"
#include "ipc/VORNShmMsgQ.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>

#include <csignal>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// What the host has, as "sets/segments". A removed segment counts while somebody is attached to
/// it.
inline std::string HostText() {
  seminfo sets{};
  shm_info segments{};
  semctl(0, 0, SEM_INFO, &sets);
  shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&segments));
  return std::to_string(sets.semusz) + "/" + std::to_string(segments.used_ids);
}

/// Each test has a host of its own: an IPC namespace, which goes with its last process. It leaves
/// no child process and no open file. SIGUSR1 does nothing but interrupt.
class IpcHost : public testing::Test {
protected:
  void SetUp() override {
    alarm(120);  // a test that hangs ends
    std::signal(SIGUSR1, [](int) {});
    if (!HostFresh())
      GTEST_SKIP() << "no private IPC namespace: " << std::strerror(errno);
  }
  void TearDown() override {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child process is left";
    EXPECT_EQ(DescriptorsGet(), _descriptors) << "open files: fewer or more than before";
  }
  static bool HostFresh() {
    return unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
  }

private:
  static std::ptrdiff_t DescriptorsGet() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }
  const std::ptrdiff_t _descriptors = DescriptorsGet();
};

/// The same, where the tests remove all System V objects that they make.
class EmptiedHost : public IpcHost {
protected:
  void TearDown() override {
    IpcHost::TearDown();
    if (!IsSkipped()) {
      EXPECT_EQ(HostText(), "0/0") << "left, or attached still";
    }
  }
};

inline int ValueGet(int set) { return semctl(set, 0, GETVAL, nullptr); }

/// Another process, which ends with what `body` returns.
class Child {
public:
  explicit Child(const std::function<int()>& body) : pid(fork()) {
    if (pid == 0)
      _exit(body());
  }
  ~Child() {
    if (!_waited) {
      kill(pid, SIGKILL);
      Wait();
    }
  }
  Child(const Child&) = delete;

  /// The exit code, or minus the signal.
  int Wait() {
    int status = 0;
    _waited = true;
    if (waitpid(pid, &status, 0) != pid)
      return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  const pid_t pid;

private:
  bool _waited = false;
};

/// Waits until something that another process does has come true; false after ten seconds.
inline bool Await(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end)
      return false;
    sched_yield();
  }
  return true;
}

/// A program that the shell starts after `first`. What it prints on both outputs is kept.
class Program {
public:
  explicit Program(const std::string& command, const std::string& first = "exec ")
      : _output(memfd_create("output", 0)), _child([&] {
          dup2(_output, STDOUT_FILENO);
          dup2(_output, STDERR_FILENO);
          return execlp("sh", "sh", "-c", (first + command).c_str(), nullptr);
        }) {}
  ~Program() { close(_output); }
  void Signal(int signal) const { kill(_child.pid, signal); }  // 0: none
  std::string Text() const {
    struct stat status = {};
    EXPECT_EQ(fstat(_output, &status), 0);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    EXPECT_EQ(pread(_output, text.data(), text.size(), 0), status.st_size);
    return text;
  }
  void Says(const std::string& text) const {
    EXPECT_TRUE(Await([&] { return HasSaid(text); })) << "no '" << text << "' in\n" << Text();
  }
  /// Waits for its end, after a signal if one is given.
  void Expect(int exitCode, const std::string& text = "", int signal = 0) {
    Signal(signal);
    EXPECT_EQ(_child.Wait(), exitCode) << Text();
    EXPECT_TRUE(HasSaid(text)) << "no '" << text << "' in\n" << Text();
  }

private:
  bool HasSaid(const std::string& text) const { return Text().find(text) != std::string::npos; }

  const int _output;
  Child _child;
};

inline bool WaiterAwait(int set) {
  return Await([set] { return semctl(set, 0, GETNCNT, nullptr) == 1; });
}

/// A queue whose insides can be seen.
struct Queue : ShmMsgQImpl {
  using ShmMsgQImpl::_capacity;
  using ShmMsgQImpl::_header;
  using ShmMsgQImpl::_mutexId;
  using ShmMsgQImpl::_semaphoreId;
  using ShmMsgQImpl::_shm;
  using ShmMsgQImpl::Initialize;
  using ShmMsgQImpl::SendInternal;
  using ShmMsgQImpl::ShmMsgQImpl;

  char* Ring() const { return reinterpret_cast<char*>(_header) + sizeof *_header; }
  std::string RingText() const { return {Ring(), static_cast<std::size_t>(_capacity)}; }
  std::string Receive(int length) {
    std::string text(static_cast<std::size_t>(length), '?');
    const int received = Recv(text.data(), length);
    return received < 0 ? "failed" : text.substr(0, static_cast<std::size_t>(received));
  }
};

/// One that leaves nothing on the host.
struct OwnQueue : Queue {
  using Queue::Queue;
  ~OwnQueue() override { ShmMsgQImpl::Destroy(); }
};

#endif
