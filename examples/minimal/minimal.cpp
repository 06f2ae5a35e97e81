// The smallest whole program: nodes that send a heartbeat to a group and hear those of the others,
// in one loop on one thread. docs/tutorial.md builds it up.

#include "net/VORNDGramMulticast.h"
#include "net/miscIPUtils.h"
#include "platform/VornCDRStream.h"
#include "reliability/SequenceNumber.h"
#include "time/VORNClock.h"
#include "time/VORNEventManager.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

constexpr unsigned int GROUP = 0xEFFF0001;  // 239.255.0.1
constexpr int PORT = 7400;
constexpr int HEARTBEAT_SIZE = 12;  // node and number

static VORNNtpTime NowGet(VORNClock* clock) {
  KELNtpTime now;
  clock->TimeGet(&now);
  return VORNNtpTime::FromKelTime(now);
}

// An event that sends when it fires: twice a second.
class Heartbeat : public VORNEvent {
public:
  Heartbeat(const VORNNtpTime& now, std::int32_t node, VORNDGramMulticast* sender)
      : VORNEvent(now, VORNNtpTime(0, 500000000), 0, EVENT_ENABLED), _node(node), _sender(sender) {}

  int Fired(const VORNNtpTime& now) override {
    if (VORNEvent::Fired(now) == 0)
      return 0;
    _number.Add(1);
    Send();
    return 1;
  }
  std::int64_t CountGet() const { return _number.IntegerGet(); }

private:
  void Send() {
    char bytes[HEARTBEAT_SIZE];
    VORNCDRStream stream;
    VornCDRStreamInitialize(&stream, bytes, sizeof bytes, VORN_CDR_BIG_ENDIAN);
    KELNetioAddr group;
    KelNetioAddrInitialize(&group, GROUP, PORT);
    if (VornCDR4ByteSerialize(&stream, &_node) == 0 || _number.Serialize(&stream) == 0 ||
        _sender->SendTo(&group, &stream) == 0)
      std::fprintf(stderr, "node %" PRId32 ": a heartbeat was not sent\n", _node);
  }

  std::int32_t _node;
  SequenceNumber _number;
  VORNDGramMulticast* _sender;
};

// Prints every heartbeat that waits, but our own: this host hears itself.
static void HeartbeatsReceive(VORNDGram* receiver, std::int32_t ownNode) {
  char bytes[HEARTBEAT_SIZE];
  KELNetioAddr source;
  for (int length; (length = receiver->receiveFrom(receiver, &source, bytes, sizeof bytes)) >= 0;) {
    VORNCDRStream stream;
    VornCDRStreamInitialize(&stream, bytes, sizeof bytes, VORN_CDR_BIG_ENDIAN);
    std::int32_t node = 0;
    SequenceNumber number;
    if (length != HEARTBEAT_SIZE || VornCDR4ByteDeserialize(&stream, &node) == 0 ||
        number.Deserialize(&stream) == 0 || node == ownNode)
      continue;  // anybody can send to a group
    char address[VORN_ADDRESS_TEXT_SIZE];
    std::printf("node %" PRId32 " at %s: heartbeat %" PRId64 "\n", node,
                VornAddressToString(source.addressGet(&source), address), number.IntegerGet());
  }
}

static int NodeRun(std::int32_t node, std::int64_t count) {
  VORNMulticastProperties multicast;
  VornMulticastPropertiesDefaultGet(&multicast);
  multicast.enable = 1;
  multicast.ttl = 0;  // stays on this host; 1 goes to the local network
  VORNDGramMulticast sender(&multicast, 0, nullptr, -1);
  VORNDGram receiver(1, 0, nullptr, -1);
  VORNClock clock;
  VORNEventManager events(1, 10, 0);  // one event, which is ours; sleeps of ten seconds at most
  if (sender.IsValid() == 0 || receiver.IsValid() == 0 || clock.IsValid() == 0 ||
      events.IsValid() == 0 || receiver.RecvMulticastInitialize(PORT) != PORT ||
      receiver.RecvMulticastGroupJoin(GROUP) == 0)
    return 1;
  Heartbeat heartbeat(NowGet(&clock), node, &sender);
  events.EventAdd(&heartbeat);
  while (heartbeat.CountGet() < count) {
    KELNtpTime sleep = events.SleepTimeMinGet(NowGet(&clock)).KelTimeGet();
    if (receiver.HasDataWithSleep(&sleep) > 0)
      HeartbeatsReceive(&receiver, node);
    heartbeat.Fired(NowGet(&clock));
  }
  return 0;
}

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) {
    std::fprintf(stderr, "usage: minimal NODE HEARTBEATS\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  if (VORNDGramClass::NICInitialize() == 0)
    return 1;
  const int exitCode = NodeRun(std::atoi(arguments[1]), std::atoll(arguments[2]));
  VORNDGramClass::NICDestroy();  // after the last endpoint
  return exitCode;
}
