#include "support/Processes.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

void SystemFail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

Children::~Children() {
  for (const pid_t child : _children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

pid_t Children::Start(const std::function<void()>& body) {
  // Or the child would write once more what waits in the buffers.
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0)
    SystemFail("fork");
  if (child > 0) {
    _children.push_back(child);
    return child;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    body();
  } catch (const std::exception& reason) {
    std::fprintf(stderr, "bench: in a child: %s\n", reason.what());
    _exit(1);
  }
  _exit(0);
}

void Children::Join(pid_t child) {
  int status = -1;
  if (waitpid(child, &status, 0) != child)
    SystemFail("waitpid");
  _children.erase(std::remove(_children.begin(), _children.end(), child), _children.end());
  if (status != 0)
    throw std::runtime_error("a child ended with status " + std::to_string(status));
}

void Children::JoinAll() {
  while (!_children.empty())
    Join(_children.front());
}

Gate::Gate() {
  if (pipe(_arrived) != 0 || pipe(_opened) != 0)
    SystemFail("pipe");
}

Gate::~Gate() {
  close(_arrived[0]);
  close(_arrived[1]);
  close(_opened[0]);
  if (_opened[1] >= 0)
    close(_opened[1]);
}

void Gate::Pass() {
  char byte = 0;
  // Every child has a copy of this end, and the gate is open when all of them are closed.
  close(_opened[1]);
  if (write(_arrived[1], &byte, 1) != 1 || read(_opened[0], &byte, 1) != 0)
    SystemFail("gate");
}

void Gate::Open(int count) {
  char byte;
  for (int i = 0; i < count; ++i)
    if (read(_arrived[0], &byte, 1) != 1)
      SystemFail("gate");
  close(_opened[1]);
  _opened[1] = -1;
}

Usage UsageGet() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return {seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_nvcsw)};
}
