// A queue whose segment another process scribbles on: header, length word and ring. Whatever stands
// there, a receiver fills no more of its buffer than it was told to, a sender goes nowhere else,
// and both come back. Until the first scribble the queue agrees with a plain list of messages.
//
// The queue is made in an IPC namespace of its own, which goes with the process.

#include "Demand.h"
#include "ipc/VORNShmMsgQ.h"
#include "ipc/internal/QueueLayout.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <atomic>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/sem.h>

namespace {

constexpr int ID = 3;
constexpr int BUFFER_SIZE = 300;

struct Queue : ShmMsgQImpl {
  using ShmMsgQImpl::_capacity;
  using ShmMsgQImpl::_header;
  using ShmMsgQImpl::_semaphoreId;
  using ShmMsgQImpl::_shm;
  using ShmMsgQImpl::ShmMsgQImpl;
};

struct Scribble {
  std::size_t position;
  char byte;
};

void ByteWrite(const Queue& queue, const Scribble& scribble) {
  char& byte = queue._shm->base[scribble.position % queue._shm->size];
  std::atomic_ref<char>(byte).store(scribble.byte, std::memory_order_relaxed);
}

/// One receive into a buffer of `length` bytes with a mark behind them.
std::string Receive(Queue& queue, int length, int* result) {
  std::string buffer(static_cast<std::size_t>(length) + 1, '!');
  *result = queue.Recv(buffer.data(), length);
  Demand(*result >= -1 && *result <= length, "a result that is no number of bytes");
  Demand(buffer.back() == '!', "a byte after the buffer was written");
  return buffer.substr(0, static_cast<std::size_t>(std::max(*result, 0)));
}

/// One thread: sends, receives and scribbles by turns.
void TurnsTry(Queue& sender, Queue& receiver, FuzzedDataProvider& input) {
  std::deque<std::string> model;
  bool isSound = true;
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
    case 0: {
      const std::string message = input.ConsumeRandomLengthString(BUFFER_SIZE);
      const int space = sender.SpaceGet(), length = static_cast<int>(message.size());
      const int sent = sender.Send(message.data(), length);
      Demand(!isSound || (sent == 1) == (space >= length + 4), "sent beside the room there was");
      if (sent == 1)
        model.push_back(message);
      break;
    }
    case 1: {
      if (receiver._header->writeOffset == receiver._header->readOffset)  // it would wait
        break;
      int result = 0;
      const int length = input.ConsumeIntegralInRange(0, BUFFER_SIZE);
      const auto before = RingOffsetsLoad(receiver._header, receiver._capacity);
      const std::string text = Receive(receiver, length, &result);
      const auto after = RingOffsetsLoad(receiver._header, receiver._capacity);
      Demand(result == -1 || (before && after), "a message out of a ring without an order");
      Demand(result == -1 || RingUsedGet(*before, receiver._capacity) >=
                                 RingUsedGet(*after, receiver._capacity) + 4 + result,
             "a message that goes on behind the last one");
      if (isSound) {
        Demand(text == model.front().substr(0, static_cast<std::size_t>(length)),
               "another message");
        model.pop_front();
      }
      break;
    }
    default:
      isSound = false;
      ByteWrite(receiver, {input.ConsumeIntegral<std::uint16_t>(), input.ConsumeIntegral<char>()});
    }
    const int space = sender.SpaceGet();
    Demand(space >= 0 && space < sender._capacity, "more space than the ring has");
  }
}

/// Three threads: one repeats its scribbles, while another sends and the last one receives. The
/// first puts the offsets out of the ring and gives the semaphore, so that no receiver waits for
/// ever.
void RaceTry(Queue& sender, Queue& receiver, FuzzedDataProvider& input) {
  std::vector<Scribble> scribbles;
  for (int count = input.ConsumeIntegralInRange(0, 20); count > 0; --count)
    scribbles.push_back({input.ConsumeIntegral<std::uint16_t>(), input.ConsumeIntegral<char>()});
  const std::string message = input.ConsumeRandomLengthString(BUFFER_SIZE);
  const std::jthread scribbler([&](const std::stop_token& end) {
    while (!end.stop_requested()) {
      for (const Scribble& scribble : scribbles)
        ByteWrite(receiver, scribble);
      OffsetStore(&receiver._header->readOffset, -1);
      semctl(receiver._semaphoreId, 0, SETVAL, 1);
    }
  });
  const std::jthread sending([&] {
    for (int turn = 0; turn < 20; ++turn)
      sender.Send(message.data(), static_cast<int>(message.size()));
  });
  for (int turn = 0; turn < 20; ++turn) {
    int result = 0;
    Receive(receiver, turn * BUFFER_SIZE / 20, &result);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    std::perror("queue_fuzz: skipped: no IPC namespace of our own");
    std::exit(77);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto ring = input.ConsumeIntegral<std::uint8_t>();
  const bool races = input.ConsumeIntegralInRange(0, 99) == 0;
  Queue receiver(1, ID, ring);
  Queue sender(1, ID);
  Demand(receiver.IsValid() == 1, "the queue was not made");
  (races ? RaceTry : TurnsTry)(sender, receiver, input);
  receiver.Destroy();
  return 0;
}
