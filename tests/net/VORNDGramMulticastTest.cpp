#include "net/VORNDGramMulticast.h"
#include "platform/VornCDRStream.h"
#include "support/ScriptedInterfaces.h"

namespace {

using MulticastSender = Scripted;

const std::vector<ScriptedInterface> THREE{
    {0x7F000001, LOOP | UP | CAST}, {0x0A000001, UP | CAST}, {0x0A000002, UP | CAST}};

struct Sender : VORNDGramMulticast {
  using VORNDGramMulticast::VORNDGramMulticast;
  std::vector<int> Indices() const { return {_nicIndex, _nicIndex + _dgramCount}; }

  int Send(unsigned int address) {
    char bytes[4];
    VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, 3};
    KELNetioAddr destination;
    KelNetioAddrInitialize(&destination, address, 7400);
    EXPECT_EQ(SendTo(nullptr, &stream) + SendTo(&destination, nullptr), 0);
    return SendTo(&destination, &stream);
  }
};

TEST_F(MulticastSender, SendsFromEachInterfaceThatIsUp) {
  const InterfaceTable table(THREE);
  VORNMulticastProperties multicast{1, 9, 0};
  VORNDGramProperties sizes{0, 512};
  CallsTake();
  Script().descriptor = 5;
  Script().bindResult = [port = 40000](int) mutable { return ++port; };
  Sender sender(&multicast, KEL_DGRAM_OPT_SNDBUF, &sizes, 77);
  EXPECT_EQ(CallsTake(),
            "KelDGramInitialize; optionSet 2 00020000 on 5; bind 0 0 on 5; optionSet 20 09 on 5; "
            "optionSet 80 00 on 5; optionSet 40 0a000001 on 5; "
            "KelDGramInitialize; optionSet 2 00020000 on 6; bind 0 0 on 6; optionSet 20 09 on 6; "
            "optionSet 80 00 on 6; optionSet 40 0a000002 on 6");
  EXPECT_TRUE(sender.Indices() == (std::vector<int>{1, 2}) && sender._port == 40001);
  Script().sendResults = {1, 5, 0, 1, 0, -3};
  EXPECT_EQ(sender.Send(0xEFFF0001) + sender.Send(0xEFFF0001), 1);
  VORN_NIC[1].flags = NIC_MULTICAST;
  EXPECT_EQ(sender.Send(0xE0000000), 1);
  VORN_NIC[2].flags = NIC_MULTICAST;
  EXPECT_EQ(sender.Send(0xEFFFFFFF), 1);
  EXPECT_EQ(sender.Send(0xF0000000) + sender.Send(0x0A000005), -3);
  EXPECT_EQ(CallsTake(), "sendTo 3 on 5; sendTo 3 on 6; sendTo 3 on 5; sendTo 3 on 6; "
                         "sendTo 3 on 5; sendTo 3 on 5");
}

TEST_F(MulticastSender, LoneEndpointAdoptsTheDescriptor) {
  VORNMulticastProperties off{7, 7, 7}, on{1, 1, 1};
  VornMulticastPropertiesDefaultGet(&off);
  EXPECT_TRUE(off.enable == 0 && off.ttl == 1 && off.loopback == 1);
  const auto expect = [](VORNMulticastProperties& properties,
                         const std::vector<ScriptedInterface>& list, const std::string& options) {
    Reset();
    const InterfaceTable table(list);
    CallsTake();
    Script().descriptor = 5;
    Sender sender(&properties, 0, nullptr, 77);
    EXPECT_EQ(CallsTake(), "KelDGramInitialize; close 5; bind 0 0 on 77" + options);
    const int index = options.empty() ? 0 : 1;
    EXPECT_EQ(sender.Indices(), std::vector<int>{index});
    VORN_NIC[index].flags &= ~NIC_UP;
    Script().sendResults = {0};
    EXPECT_EQ(sender.Send(0xEFFF0001) - sender.Send(0x0A000009), 1);
    EXPECT_EQ(CallsTake(), "sendTo 3 on 77");
  };
  expect(off, {THREE[1], THREE[2]}, "");
  expect(on, {THREE[0]}, "");
  expect(on, {THREE[0], THREE[2]}, "; optionSet 20 01 on 77; optionSet 40 0a000002 on 77");
}

TEST_F(MulticastSender, FailureAtAnyStepLeavesNothingBehind) {
  VORNMulticastProperties quiet{1, 1, 0}, lone{0, 1, 1};
  const auto valid = [](VORNMulticastProperties* properties) {
    Sender sender(properties, 0, nullptr, -1);
    EXPECT_EQ(Script().openSockets, sender.IsValid() == 0 ? 0 : properties->enable + 1);
    EXPECT_TRUE(sender.IsValid() != 0 || sender.Send(0xEFFF0001) + sender.Send(0x0A000009) == 0);
    return sender.IsValid();
  };
  EXPECT_EQ(valid(&quiet), 0);
  const InterfaceTable table(THREE);
  EXPECT_EQ(valid(nullptr), 0);
  for (VORNMulticastProperties* properties : {&quiet, &lone}) {
    int step = 0;
    do
      System().failingAllocation = System().allocations + ++step;
    while (valid(properties) == 0 && step < 9);
    EXPECT_EQ(step, properties->enable + 4);
    Script().dgramInitializeFails = true;
    EXPECT_EQ(valid(properties), 0);
    Reset();
  }
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
