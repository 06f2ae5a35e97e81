#include "net/VORNDGramMulticast.h"
#include "platform/VornCDRStream.h"
#include "support/Faults.h"
#include "support/Results.h"
#include "support/ScriptedInterfaces.h"

namespace {

using MulticastSender = Scripted;
using Ints = std::vector<int>;
using Interfaces = std::vector<ScriptedInterface>;

const Interfaces THREE{{1, LOOP | UP | CAST}, {0x0A000001, UP | CAST}, {0x0A000002, UP | CAST}};

struct Sender : VORNDGramMulticast {
  using VORNDGramMulticast::VORNDGramMulticast;
  Ints Indices() const { return {_nicIndex, _nicIndex + _dgramCount}; }

  int Send(unsigned int address) {
    char bytes[4];
    VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, 3};
    KELNetioAddr to;
    KelNetioAddrInitialize(&to, address, 7400);
    ResultsExpect(0, {{"to null", SendTo(nullptr, &stream)}, {"null", SendTo(&to, nullptr)}});
    return SendTo(&to, &stream);
  }
};

TEST_F(MulticastSender, SendsFromEachInterfaceThatIsUp) {
  const InterfaceTable table(THREE);
  VORNMulticastProperties multicast{1, 9, 0};
  VORNDGramProperties sizes{0, 512};
  CallsDrain();
  Script().descriptor = 5;
  Script().bindResult = [port = 40000](int) mutable { return ++port; };
  Sender sender(&multicast, KEL_DGRAM_OPT_SNDBUF, &sizes, 77);
  EXPECT_EQ(CallsDrain(),
            "KelDGramInitialize; SNDBUF 512 on 5; bind 0 0 on 5; MULTICAST_TTL 9 on 5; "
            "MULTICAST_LOOP 0 on 5; MULTICAST_IF 10.0.0.1 on 5; "
            "KelDGramInitialize; SNDBUF 512 on 6; bind 0 0 on 6; MULTICAST_TTL 9 on 6; "
            "MULTICAST_LOOP 0 on 6; MULTICAST_IF 10.0.0.2 on 6");
  EXPECT_EQ(sender.Indices(), (Ints{1, 2}));
  EXPECT_EQ(sender._port, 40001);
  const auto expect = [&](unsigned int address, const Ints& results, int sent, const char* calls) {
    Script().sendResults = results;
    EXPECT_EQ(sender.Send(address), sent) << calls;
    EXPECT_EQ(CallsDrain(), calls);
  };
  expect(0xEFFF0001, {1, 5}, 1, "sendTo 3 on 5; sendTo 3 on 6");
  expect(0xEFFF0001, {0, 1}, 0, "sendTo 3 on 5");
  VORN_NIC[1].flags = NIC_MULTICAST;
  expect(0xE0000000, {}, 1, "sendTo 3 on 6");
  VORN_NIC[2].flags = NIC_MULTICAST;
  expect(0xEFFFFFFF, {}, 1, "");
  expect(0xF0000000, {0}, 0, "sendTo 3 on 5");
  expect(0xDFFFFFFF, {-3}, -3, "sendTo 3 on 5");
  VORN_NIC_COUNT = 0;
  expect(0x0A000005, {}, 0, "");
}

TEST_F(MulticastSender, LoneEndpointAdoptsTheDescriptor) {
  VORNMulticastProperties off{7, 7, 7}, on{-1, 1, 1};
  VornMulticastPropertiesDefaultGet(&off);
  VornMulticastPropertiesDefaultGet(nullptr);
  EXPECT_EQ(off.enable, 0);
  ResultsExpect(1, {{"time to live", off.ttl}, {"loopback", off.loopback}});
  const auto expect = [](auto& properties, const Interfaces& list, const std::string& options) {
    Reset();
    const InterfaceTable table(list);
    CallsDrain();
    Script().descriptor = 5;
    Sender sender(&properties, 0, nullptr, 77);
    EXPECT_EQ(CallsDrain(), "KelDGramInitialize; close 5; bind 0 0 on 77" + options);
    const int index = options.empty() ? 0 : 1;
    EXPECT_EQ(sender.Indices(), Ints{index});
    VORN_NIC[index].flags &= ~NIC_UP;
    Script().sendResults = {0};
    EXPECT_EQ(sender.Send(0xEFFF0001), 1);
    EXPECT_EQ(sender.Send(0x0A000009), 0);
    EXPECT_EQ(CallsDrain(), "sendTo 3 on 77");
  };
  expect(off, {THREE[1], THREE[2]}, "");
  expect(on, {THREE[0]}, "");
  expect(on, {THREE[0], THREE[2]}, "; MULTICAST_TTL 1 on 77; MULTICAST_IF 10.0.0.2 on 77");
}

TEST_F(MulticastSender, FailureAtAnyStepLeavesNothingBehind) {
  VORNMulticastProperties quiet{1, 1, 0}, lone{0, 1, 1};
  const auto valid = [](VORNMulticastProperties* properties) {
    Sender sender(properties, KEL_DGRAM_OPT_SNDBUF, nullptr, -1);
    EXPECT_EQ(Script().openSockets, sender.IsValid() == 0 ? 0 : properties->enable + 1);
    if (sender.IsValid() == 0)
      ResultsExpect(0, {{"group", sender.Send(0xEFFF0001)}, {"host", sender.Send(0x0A000009)}});
    return sender.IsValid();
  };
  EXPECT_EQ(valid(&quiet), 0) << "without a table";
  const InterfaceTable table(THREE);
  EXPECT_EQ(valid(nullptr), 0);
  EXPECT_EQ(FaultsTry([&] { return valid(&lone); }), "memory, memory, memory, KelDGramInitialize");
  EXPECT_EQ(FaultsTry([&] { return valid(&quiet); }),
            "memory, memory, memory, KelDGramInitialize, MULTICAST_TTL 1, MULTICAST_IF 10.0.0.1, "
            "memory, KelDGramInitialize, MULTICAST_TTL 1, MULTICAST_IF 10.0.0.2");
  Script().bindResult = [](int) {
    VORN_NIC[2].flags = NIC_MULTICAST;
    return 50000;
  };
  EXPECT_EQ(valid(&quiet), 0) << "an interface goes down while its endpoints are made";
  VORN_NIC[2].flags = NIC_UP | NIC_MULTICAST;
  Script().bindResult = [](int) { return 50000; };
  const auto expect = [&](int option, int isValid, const char* message) {
    MessagesExpect({{0, message}}, [&] {
      Script().optionErrno[option] = {0, EPERM};
      EXPECT_EQ(valid(&quiet), isValid);
    });
  };
  expect(KEL_DGRAM_OPT_MULTICAST_TTL, 0, "VORN: could not set TTL\n");
  expect(KEL_DGRAM_OPT_MULTICAST_LOOP, 1,
         "VORN: unable to turn off multicast loopback, but socket still created\n");
  expect(KEL_DGRAM_OPT_MULTICAST_IF, 0, "unable to set sending interface to 10.0.0.2\n");
}

}  // namespace
