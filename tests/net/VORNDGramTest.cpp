#include "platform/VornCDRStream.h"
#include "support/ScriptedInterfaces.h"

namespace {

using Endpoint = Scripted;

constexpr unsigned int GROUP = 0xEF010101;

TEST_F(Endpoint, AdoptsADescriptorThenSetsOptionsUpToTheFirstFailure) {
  const std::string tag = "VORNDGram::VORNDGram: ", send = "; optionSet 2 00020000 on 7",
                    recv = "; optionSet 4 00030000 on 7", cast = "; optionSet 400 01000000 on 7";
  const Message sending{3, tag + "Setting SNDBUF to 512\n"};
  const Message receiving{3, tag + "Setting RECVBUF to 768\n"};
  VORNDGramProperties sizes{0x300, 0x200}, none{0, 0};
  const auto expect = [](int mask, VORNDGramProperties* properties, int failing,
                         const std::string& calls, const std::vector<Message>& messages) {
    MessagesExpect(messages, [&] {
      Script().descriptor = 5;
      Script().optionErrno[failing] = {EPERM};
      EXPECT_EQ(VORNDGram(0, mask, properties, 7).IsValid(), 1);
      EXPECT_EQ(CallsTake(), "KelDGramInitialize; close 5" + calls + "; KelDGramRelease");
    });
  };
  expect(-1, &sizes, 0, send + recv + cast, {sending, receiving});
  expect(-1, &sizes, 2, send, {sending, {0, tag + "setsockopt(SO_SNDBUF) failed\n"}});
  expect(~2, &sizes, 4, recv, {receiving, {0, tag + "setsockopt(SO_RECVBUF) failed\n"}});
  expect(-1, nullptr, 0x400, cast, {{0, tag + "setsockopt(SO_BROADCAST) failed\n"}});
  expect(6, &none, 0, "", {});
  expect(~0x406, &sizes, 0, "", {});
  Script().descriptor = 5;
  const VORNDGram kept(0, 0, nullptr, -1), zero(0, 0, nullptr, 0);
  EXPECT_EQ(CallsTake(), "KelDGramInitialize; KelDGramInitialize; close 6");
}

TEST_F(Endpoint, WithoutMemoryOrSocketHoldsNothingAndRefusesEverything) {
  const InterfaceTable table({{0x0A000001, UP | CAST}});
  for (const int failing : {1, 2, 0}) {
    System().failingAllocation = System().allocations + failing;
    Script().dgramInitializeFails = failing == 0;
    Script().calls.clear();
    VORNDGram dgram(1, -1, nullptr, 7);
    VORNMulticastProperties multicast{1, 1, 1};
    EXPECT_EQ(Script().openSockets + dgram.IsValid() + dgram.SendTo(nullptr, nullptr) +
                  dgram.RecvMulticastInitialize(1) + dgram.RecvMulticastAdd(GROUP) +
                  dgram.RecvMulticastRemove(GROUP) + dgram.RecvMulticastGroupJoin(GROUP) +
                  dgram.SendMulticastInitialize(&multicast, 1),
              0);
    KELNtpTime wait;
    EXPECT_TRUE(dgram.HasDataWithSleep(&wait) == -1 && errno == EBADF);
    const std::string made = failing == 0 ? "KelDGramInitialize; " : "";
    EXPECT_EQ(CallsTake(), made + "KelDGramRelease");
  }
}

TEST_F(Endpoint, SendsOnceAfterTellingTheListener) {
  struct Listener : VORNDiagNetworkListenerClass {
    void SendNotify(VORNCDRStream* stream) override {
      Script().calls.push_back("heard " + std::to_string(stream->position));
    }
  } listener;
  VORNDGram dgram(0, 0, nullptr, -1);
  char bytes[8];
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes, sizeof bytes, 3};
  Script().sendResults = {-7, 0};
  VORN_DIAG_NETWORK_LISTENER = &listener;
  EXPECT_EQ(dgram.SendTo(nullptr, &stream), -7);
  VORN_DIAG_NETWORK_LISTENER = nullptr;
  EXPECT_EQ(dgram.SendTo(nullptr, nullptr), 0);
  EXPECT_EQ(CallsTake(), "KelDGramInitialize; heard 3; sendTo 3; sendTo 0 null");
}

TEST_F(Endpoint, WaitsWithOneSelect) {
  Script().descriptor = FD_SETSIZE - 1;
  VORNDGram dgram(0, 0, nullptr, -1), tooLarge(0, 0, nullptr, -1);
  CallsTake();
  const auto expect = [&](KELNtpTime timeout, long seconds, long microseconds) {
    System().select = [&](int count, fd_set* readable, timeval* wait) {
      fd_set only{};
      FD_SET(FD_SETSIZE - 1, &only);
      EXPECT_TRUE(count == FD_SETSIZE && std::memcmp(readable, &only, sizeof only) == 0);
      EXPECT_TRUE(wait->tv_sec == seconds && wait->tv_usec == microseconds) << timeout.sec;
      return 9;
    };
    EXPECT_EQ(dgram.HasDataWithSleep(&timeout), 9);
    EXPECT_EQ(dgram.HasDataWithSleep(nullptr), -1);
    EXPECT_TRUE(tooLarge.HasDataWithSleep(&timeout) == -1 && errno == EINVAL);
    EXPECT_EQ(CallsTake(), "select");
  };
  expect({0, UINT32_MAX}, 1, 0);
  expect({0, 0x80000000}, 0, 500000);
  expect({INT32_MAX, UINT32_MAX}, INT32_MAX, 1000000);
  expect({-3, 2145}, -3, 1);
}

TEST_F(Endpoint, BindsTheMulticastPortItIsAskedFor) {
  const auto expect = [](int error, int port, const std::string& calls, const Message& message) {
    MessagesExpect({message}, [&] {
      VORNDGram dgram(1, 0, nullptr, -1);
      Script().optionErrno[KEL_DGRAM_OPT_REUSEADDR] = {error};
      EXPECT_EQ(dgram.RecvMulticastInitialize(port), message.level * port);
      EXPECT_EQ(CallsTake(), "KelDGramInitialize; optionSet 1 01000000" + calls);
    });
  };
  expect(0, 7400, "; bind 0 7400", {1, "VORN: Multicast Port specified 7400\n"});
  expect(0, 0, "; bind 0 0", {0, "VORN: Unable to bind to multicast port 0\n"});
  expect(EPERM, 7400, "", {0, "VORN: Unable to reuse addr\n"});
}

}  // namespace
