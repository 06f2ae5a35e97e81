#include "Clause.h"

#include <chrono>
#include <csignal>
#include <thread>

#include <malloc.h>
#include <poll.h>

#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 33)
#define HOST_TELLS_ITS_MEMORY
#endif
#endif

// What a sanitizer that has an allocator of its own tells in the C library's place.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace {

constexpr int PAUSE_MILLISECONDS = 40;
constexpr int PATIENCE_MILLISECONDS = 5000;

extern "C" void NothingDo(int /*signal*/) {}

// Bytes that are allocated now.
std::size_t MemoryGet() {
  if (__sanitizer_get_current_allocated_bytes != nullptr)
    return __sanitizer_get_current_allocated_bytes();
#ifdef HOST_TELLS_ITS_MEMORY
  return mallinfo2().uordblks;
#else
  ClauseSkip("the C library does not tell how much memory is in use");
#endif
}

}  // namespace

double SecondsGet() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void MillisecondsSleep(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool MemoryIsGivenBack(const std::function<void()>& round) {
  constexpr std::size_t ROUNDS = 1000;
  std::size_t before = 0;
  for (std::size_t i = 0; i < 2 * ROUNDS; ++i) {
    if (i == ROUNDS)
      before = MemoryGet();
    round();
  }
  return MemoryGet() < before + ROUNDS;
}

bool DatagramAwait(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return poll(&wait, 1, PATIENCE_MILLISECONDS) == 1;
}

Helper::Helper(std::function<void()> work) {
  std::thread thread([state = _state, work = std::move(work)] {
    state->hasBegun = true;
    work();
    state->hasEnded = true;
  });
  _thread = thread.native_handle();
  thread.detach();
}

bool Helper::IsWaiting() const {
  while (!_state->hasBegun)
    MillisecondsSleep(1);
  MillisecondsSleep(PAUSE_MILLISECONDS);
  return !_state->hasEnded;
}

bool Helper::HasEnded() const {
  for (int waited = 0; !_state->hasEnded && waited < PATIENCE_MILLISECONDS; ++waited)
    MillisecondsSleep(1);
  return _state->hasEnded;
}

void Helper::Interrupt() const {
  struct sigaction action = {};
  action.sa_handler = NothingDo;  // and no SA_RESTART: an interrupted system call ends
  sigaction(SIGUSR1, &action, nullptr);
  pthread_kill(_thread, SIGUSR1);
}

void ThreadsRun(int count, const std::function<void(int number)>& work) {
  std::atomic<int> missing{count};
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int number = 0; number < count; ++number)
    threads.emplace_back([&, number] {
      --missing;
      while (missing > 0)  // short work would be done before the next thread begins
        std::this_thread::yield();
      work(number);
    });
  for (std::thread& thread : threads)
    thread.join();
}
