// The queue against its floor and everything else that carries messages between processes of one
// host. In an IPC namespace of its own: what is made here is gone with it.

#include "targets.h"

#include "support/Namespaces.h"
#include "support/Processes.h"
#include "support/Timed.h"
#include "transports.h"

#include <algorithm>
#include <cstring>
#include <sched.h>
#include <unistd.h>

namespace {

using TransportPointer = std::shared_ptr<Transport>;

constexpr int STREAM_LENGTH = 256;
constexpr int STREAM_ROOM = 65536;
constexpr int MOST_SENDERS = 8;
constexpr long SLEEP_NANOSECONDS = 200'000;

void SendSurely(Transport& transport, int length) {
  // Those that do not wait for room leave it to their users, who can do no better than this.
  while (!transport.Send(length))
    sched_yield();
}

// One thread sends and takes: the cost of the calls and the copies. Nobody waits.
Measure RoundTrip(const TransportPointer& transport, int length) {
  return Timed([transport, length] {
    if (!transport->Send(length) || transport->Receive(length) != length)
      throw std::runtime_error("a message was lost");
    return transport->In();
  });
}

struct StreamState {
  Usage usage[MOST_SENDERS];
};

void StreamSend(Transport& transport, Gate& gate, long count, Usage* used) {
  gate.Pass();
  const Usage before = UsageGet();
  for (long i = 0; i < count; ++i)
    SendSurely(transport, STREAM_LENGTH);
  const Usage after = UsageGet();
  *used = {after.seconds - before.seconds, after.switches - before.switches};
}

// Returns the seconds, and adds up what receiver and senders used.
double StreamRun(Transport& transport, int senders, long count, Usage* total) {
  Shared<StreamState> state;
  Gate gate;
  Children children;
  for (int i = 0; i < senders; ++i)
    children.Start([&, i] { StreamSend(transport, gate, count, &state->usage[i]); });
  gate.Open(senders);
  const Usage before = UsageGet();
  const double start = SecondsNow();
  for (long i = 0; i < senders * count; ++i)
    if (transport.Receive(STREAM_LENGTH) != STREAM_LENGTH)
      throw std::runtime_error("a message was lost");
  const double seconds = SecondsNow() - start;
  const Usage after = UsageGet();
  children.JoinAll();
  *total = {after.seconds - before.seconds, after.switches - before.switches};
  for (int i = 0; i < senders; ++i) {
    total->seconds += state->usage[i].seconds;
    total->switches += state->usage[i].switches;
  }
  return seconds;
}

Measure Stream(const TransportPointer& transport, int senders) {
  return [transport, senders, count = 200L](double seconds) mutable -> Values {
    Usage used;
    const double elapsed = StreamRun(*transport, senders, count, &used);
    const auto messages = static_cast<double>(senders * count);
    count = std::clamp(CountNext(count, elapsed, seconds), 100L, 1'000'000L);
    return {messages / elapsed, used.seconds * 1e9 / messages, used.switches * 1000 / messages};
  };
}

// The sender sleeps so long between two messages that the receiver sleeps, too.
void StampsSend(Transport& transport, long count) {
  for (long i = 0; i < count; ++i) {
    const timespec pause{0, SLEEP_NANOSECONDS};
    nanosleep(&pause, nullptr);
    const double now = SecondsNow();
    std::memcpy(transport.Out(), &now, sizeof now);
    SendSurely(transport, STREAM_LENGTH);
  }
}

Measure WakeUp(const TransportPointer& transport) {
  return [transport](double seconds) -> Values {
    const long count = std::max(20L, static_cast<long>(seconds * 1e9 / (2 * SLEEP_NANOSECONDS)));
    Children children;
    children.Start([&] { StampsSend(*transport, count); });
    std::vector<double> latencies;
    latencies.reserve(static_cast<std::size_t>(count));
    for (long i = 0; i < count; ++i) {
      transport->Receive(STREAM_LENGTH);
      double sent = 0;
      std::memcpy(&sent, transport->In(), sizeof sent);
      latencies.push_back((SecondsNow() - sent) * 1e6);
    }
    children.JoinAll();
    std::sort(latencies.begin(), latencies.end());
    return {latencies[latencies.size() / 2], latencies[latencies.size() * 99 / 100]};
  };
}

// Adds every transport; `measure` makes a measurement of one.
template <typename Make> void TransportsAdd(Case* subject, int length, int room, Make measure) {
  for (const TransportKind& kind : TransportKinds())
    subject->Add(kind.name, kind.role,
                 [&] { return measure(TransportPointer(kind.make(length, room))); });
}

}  // namespace

void QueueBench(Runner& runner) {
  IpcNamespaceEnter();
  const std::vector<int> lengths = runner.IsQuick()
                                       ? std::vector{16, 4096, 262144}
                                       : std::vector{16, 64, 256, 1024, 4096, 16384, 65536, 262144};
  for (const int length : lengths) {
    Case subject{"message, one thread", "bytes", length};
    TransportsAdd(&subject, length, std::max(STREAM_ROOM, 3 * length),
                  [=](const TransportPointer& transport) { return RoundTrip(transport, length); });
    runner.Run(subject);
  }
  for (int senders = 1; senders <= MOST_SENDERS; senders *= runner.IsQuick() ? 8 : 2) {
    Case subject{"stream", "senders", senders};
    subject.metrics = {{"messages", "1/s", true}, {"processor time", "ns"}, {"switches", "/1000"}};
    subject.effort = 2;
    TransportsAdd(&subject, STREAM_LENGTH, STREAM_ROOM,
                  [=](const TransportPointer& transport) { return Stream(transport, senders); });
    runner.Run(subject);
  }
  Case subject{"wake-up", "", 0, {{"p50", "us"}, {"p99", "us"}}, 5};
  TransportsAdd(&subject, STREAM_LENGTH, STREAM_ROOM, WakeUp);
  runner.Run(subject);
}
