// Runs in an IPC namespace of its own: what it makes is gone with it. One thread sends a message
// and takes it, so this is the cost of the calls; nobody waits.

#include "ipc/VORNShmMsgQ.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int QUEUE_ID = 74;
constexpr std::size_t MAXIMUM = 4096;

struct Message {
  long type = 1;  // System V keeps its type in front of the text
  char text[MAXIMUM];
} sent, taken;

// `step` sends and takes `length` bytes, and returns how many it took.
template <typename Step> void Run(benchmark::State& state, Step step) {
  const auto length = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    if (static_cast<std::size_t>(step(length)) != length)
      state.SkipWithError("a message was lost");
    benchmark::ClobberMemory();
  }
}

void QueueLibrary(benchmark::State& state) {
  ShmMsgQImpl queue(1, QUEUE_ID, 16 * MAXIMUM);
  Run(state, [&queue](std::size_t length) {
    const int count = static_cast<int>(length);
    return queue.Send(sent.text, count) != 0 ? queue.Recv(taken.text, count) : -1;
  });
  queue.Destroy();
}

// Through a ring that moves on, as the queue's does: copies that always begin at one place can be
// ten times as slow, when that place and the buffers agree in their last twelve address bits.
void QueueFloor(benchmark::State& state) {
  static char ring[16 * MAXIMUM];
  Run(state, [at = std::size_t{0}](std::size_t length) mutable {
    at = (at + length + 4) % (15 * MAXIMUM);
    std::memcpy(ring + at, sent.text, length);
    benchmark::ClobberMemory();
    std::memcpy(taken.text, ring + at, length);
    return length;
  });
}

void DescriptorsRun(benchmark::State& state, const int (&ends)[2]) {
  Run(state, [&ends](std::size_t length) {
    return write(ends[1], sent.text, length) > 0 ? read(ends[0], taken.text, length) : -1;
  });
  close(ends[0]);
  close(ends[1]);
}

void QueuePipe(benchmark::State& state) {
  int ends[2];
  if (pipe(ends) != 0)
    return state.SkipWithError("no pipe");
  DescriptorsRun(state, ends);
}

void QueueSocketPair(benchmark::State& state) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0)
    return state.SkipWithError("no socket pair");
  DescriptorsRun(state, ends);
}

void QueueSystemV(benchmark::State& state) {
  const int queue = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  Run(state, [queue](std::size_t length) {
    return msgsnd(queue, &sent, length, 0) == 0 ? msgrcv(queue, &taken, MAXIMUM, 0, 0) : -1;
  });
  msgctl(queue, IPC_RMID, nullptr);
}

void QueuePosix(benchmark::State& state) {
  mq_attr attributes{};
  attributes.mq_maxmsg = 4;
  attributes.mq_msgsize = MAXIMUM;
  const mqd_t queue = mq_open("/vorn-bench", O_CREAT | O_RDWR, 0600, &attributes);
  mq_unlink("/vorn-bench");
  Run(state, [queue](std::size_t length) {
    return mq_send(queue, sent.text, length, 0) == 0
               ? mq_receive(queue, taken.text, MAXIMUM, nullptr)
               : -1;
  });
  mq_close(queue);
}

}  // namespace

BENCHMARK(QueueLibrary)->Name("message/library")->RangeMultiplier(16)->Range(16, MAXIMUM);
BENCHMARK(QueueFloor)->Name("message/two copies")->RangeMultiplier(16)->Range(16, MAXIMUM);
BENCHMARK(QueuePipe)->Name("message/pipe")->RangeMultiplier(16)->Range(16, MAXIMUM);
BENCHMARK(QueueSocketPair)->Name("message/socket pair")->RangeMultiplier(16)->Range(16, MAXIMUM);
BENCHMARK(QueueSystemV)->Name("message/System V queue")->RangeMultiplier(16)->Range(16, MAXIMUM);
BENCHMARK(QueuePosix)->Name("message/POSIX queue")->RangeMultiplier(16)->Range(16, MAXIMUM);

int main(int argc, char** argv) {
  if (unshare(CLONE_NEWIPC) != 0) {
    std::perror("ipc_bench: no IPC namespace of its own");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
