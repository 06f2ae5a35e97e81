#include "platform/VornCDRStream.h"
#include "support/Faults.h"
#include "support/Results.h"
#include "support/ScriptedInterfaces.h"

namespace {

using Endpoint = Scripted;

constexpr unsigned int GROUP = 0xEF010101;

TEST_F(Endpoint, AdoptsADescriptorThenSetsOptionsUpToTheFirstFailure) {
  const std::string tag = "VORNDGram::VORNDGram: ", send = "; SNDBUF 512 on 7",
                    recv = "; RCVBUF -768 on 7", cast = "; BROADCAST 1 on 7";
  const Message sending{3, tag + "Setting SNDBUF to 512\n"};
  const Message receiving{3, tag + "Setting RECVBUF to -768\n"};
  VORNDGramProperties sizes{-768, 512}, none{0, 0}, defaults{7, 7};
  const auto expect = [](int mask, VORNDGramProperties* properties, int failing,
                         const std::string& calls, const std::vector<Message>& messages) {
    MessagesExpect(messages, [&] {
      Script().descriptor = 5;
      Script().optionErrno[failing] = {EPERM};
      EXPECT_EQ(VORNDGram(0, mask, properties, 7).IsValid(), 1);
      EXPECT_EQ(CallsDrain(), "KelDGramInitialize; close 5" + calls + "; KelDGramRelease");
    });
  };
  expect(-1, &sizes, 0, send + recv + cast, {sending, receiving});
  expect(-1, &sizes, 2, send, {sending, {0, tag + "setsockopt(SO_SNDBUF) failed\n"}});
  expect(~2, &sizes, 4, recv, {receiving, {0, tag + "setsockopt(SO_RECVBUF) failed\n"}});
  expect(-1, nullptr, 0x400, cast, {{0, tag + "setsockopt(SO_BROADCAST) failed\n"}});
  expect(6, &none, 0, "", {});
  expect(~0x406, &sizes, 0, "", {});
  VornDGramPropertiesDefaultGet(nullptr);
  VornDGramPropertiesDefaultGet(&defaults);
  EXPECT_EQ(defaults.recvBufferSize, 32768);
  EXPECT_EQ(defaults.sendBufferSize, 9216);
  Script().descriptor = 5;
  const VORNDGram kept(0, 0, nullptr, -1), zero(0, 0, nullptr, 0);
  EXPECT_EQ(CallsDrain(), "KelDGramInitialize; KelDGramInitialize; close 6");
}

TEST_F(Endpoint, WithoutMemoryOrSocketHoldsNothingAndRefusesEverything) {
  const InterfaceTable table({{0x0A000001, UP | CAST}});
  const auto make = [] {
    VORNDGram dgram(1, 0, nullptr, 7);
    if (dgram.IsValid() != 0)
      return 1;
    CallsDrain();
    VORNMulticastProperties multicast{1, 1, 1};
    ResultsExpect(0, {{"send", dgram.SendTo(nullptr, nullptr)},
                      {"receive", dgram.RecvMulticastInitialize(1)},
                      {"multicast", dgram.SendMulticastInitialize(&multicast, 1)},
                      {"add", dgram.RecvMulticastAdd(GROUP)},
                      {"remove", dgram.RecvMulticastRemove(GROUP)},
                      {"join", dgram.RecvMulticastGroupJoin(GROUP)}});
    KELNtpTime wait;
    EXPECT_EQ(dgram.HasDataWithSleep(&wait), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(CallsDrain(), "");
    return 0;
  };
  EXPECT_EQ(FaultsTry(make), "memory, memory, KelDGramInitialize");
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
  EXPECT_EQ(CallsDrain(), "KelDGramInitialize; heard 3; sendTo 3; sendTo 0 null");
}

TEST_F(Endpoint, WaitsWithOneSelectForReadingAlone) {
  const auto expect = [](const char* what, int descriptor, KELNtpTime timeout, timeval expected,
                         int answer) {
    SCOPED_TRACE(what);
    Script().descriptor = descriptor;
    VORNDGram dgram(0, 0, nullptr, -1);
    CallsDrain();
    System().select = [&](int count, fd_set* readable, fd_set* writable, fd_set* broken,
                          timeval* wait) {
      fd_set only{};
      FD_SET(descriptor, &only);
      EXPECT_EQ(count, descriptor + 1);
      EXPECT_EQ(std::memcmp(readable, &only, sizeof only), 0);
      EXPECT_EQ(writable, nullptr);
      EXPECT_EQ(broken, nullptr);
      EXPECT_EQ(wait->tv_sec, expected.tv_sec);
      EXPECT_EQ(wait->tv_usec, expected.tv_usec);
      errno = EINTR;
      return answer;
    };
    EXPECT_EQ(dgram.HasDataWithSleep(&timeout), answer);
    EXPECT_EQ(dgram.HasDataWithSleep(nullptr), -1);
    EXPECT_EQ(CallsDrain(), "select");
    for (const int unfit : {-1, FD_SETSIZE}) {
      dgram.socketRecord->descriptor = unfit;
      EXPECT_EQ(dgram.HasDataWithSleep(&timeout), -1);
      EXPECT_EQ(errno, EINVAL);
    }
  };
  expect("rounded to a second", FD_SETSIZE - 1, {0, UINT32_MAX}, {1, 0}, 9);
  expect("a failure", 0, {0, 0x80000000}, {0, 500000}, -1);
  expect("the longest", 7, {INT32_MAX, UINT32_MAX}, {INT32_MAX, 1000000}, 0);
  expect("negative", 7, {-3, 2145}, {-3, 1}, 1);
}

TEST_F(Endpoint, BindsTheMulticastPortItIsAskedFor) {
  const auto expect = [](int error, int port, int bound, const char* calls, const Message& text) {
    MessagesExpect({text}, [&] {
      VORNDGram dgram(1, 0, nullptr, -1);
      Script().optionErrno[KEL_DGRAM_OPT_REUSEADDR] = {error};
      EXPECT_EQ(dgram.RecvMulticastInitialize(port), bound) << port;
      EXPECT_EQ(CallsDrain(), std::string("KelDGramInitialize; REUSEADDR 1") + calls);
    });
  };
  expect(0, 7400, 7400, "; bind 0 7400", {1, "VORN: Multicast Port specified 7400\n"});
  expect(0, 0, 0, "; bind 0 0", {0, "VORN: Unable to bind to multicast port 0\n"});
  expect(EPERM, 7400, 0, "", {0, "VORN: Unable to reuse addr\n"});
}

const std::vector<ScriptedInterface> FOUR{
    {0x0A000001, UP | CAST}, {1, LOOP | UP | CAST}, {0x0A000002, CAST}, {3, UP | CAST}};

// A derived class can put a record of no group among those of the groups.
struct Derived : VORNDGram {
  using VORNDGram::_recvGroupManager, VORNDGram::VORNDGram;
};

TEST_F(Endpoint, JoinsGroupsAtTheFirstUserAndLeavesAtTheLast) {
  const InterfaceTable table(FOUR);
  VORNDGram deaf(0, 0, nullptr, -1);
  {
    Derived dgram(1, 0, nullptr, -1);
    dgram._recvGroupManager->Add(9);
    CallsDrain();
    const auto expect = [&](auto change, int result, const std::string& calls) {
      EXPECT_EQ((dgram.*change)(GROUP), result) << calls;
      EXPECT_EQ((dgram.*change)(9), 0);
      EXPECT_EQ((deaf.*change)(GROUP), 0);
      EXPECT_EQ(CallsDrain(), calls);
    };
    constexpr auto join = &VORNDGram::RecvMulticastGroupJoin;
    constexpr auto leave = &VORNDGram::RecvMulticastGroupLeave;
    const std::string joined =
        "ADD_MEMBERSHIP 239.1.1.1 10.0.0.1; ADD_MEMBERSHIP 239.1.1.1 0.0.0.3";
    expect(join, 1, joined);
    expect(join, 1, "");
    expect(leave, 1, "");
    Script().optionErrno[KEL_DGRAM_OPT_DROP_MEMBERSHIP] = {ENODEV, ENODEV};
    expect(leave, 1, "DROP_MEMBERSHIP 239.1.1.1 10.0.0.1; DROP_MEMBERSHIP 239.1.1.1 0.0.0.3");
    expect(leave, 0, "");
    expect(join, 1, joined);
    expect(join, 1, "");
    EXPECT_EQ(
        FaultsTry([&dgram] { return dgram.RecvMulticastGroupJoin(GROUP + 1); }),
        "memory, memory, ADD_MEMBERSHIP 239.1.1.2 10.0.0.1, ADD_MEMBERSHIP 239.1.1.2 0.0.0.3");
    VORN_NIC[3].flags = NIC_MULTICAST;
    CallsDrain();
  }
  EXPECT_EQ(CallsDrain(), "DROP_MEMBERSHIP 239.1.1.1 10.0.0.1; DROP_MEMBERSHIP 239.1.1.2 10.0.0.1; "
                          "KelDGramRelease");
}

TEST_F(Endpoint, CountsNoJoinThatFails) {
  const std::string failed = "VORN: unable to add multicast address 239.1.1.1 on interface ";
  const std::string first = "ADD_MEMBERSHIP 239.1.1.1 10.0.0.1",
                    both = first + "; ADD_MEMBERSHIP 239.1.1.1 0.0.0.3";
  const InterfaceTable table(FOUR);
  const auto expect = [](const std::vector<int>& errors, int joined, const std::string& calls,
                         const std::vector<Message>& messages) {
    SCOPED_TRACE(testing::PrintToString(errors));
    MessagesExpect(messages, [&] {
      VORNDGram dgram(1, 0, nullptr, -1);
      Script().optionErrno[KEL_DGRAM_OPT_ADD_MEMBERSHIP] = errors;
      CallsDrain();
      EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP), joined);
      EXPECT_EQ(CallsDrain(), calls);
      EXPECT_EQ(dgram.RecvMulticastGroupLeave(GROUP), joined);
    });
  };
  expect({EADDRINUSE, EADDRINUSE}, 1, both, {});
  expect({ENOBUFS}, 0, first, {{0, failed + "10.0.0.1\n"}, {1, "VORN: socket error 105\n"}});
  // The first stays joined.
  expect({0, ENODEV}, 0, both, {{0, failed + "0.0.0.3\n"}, {1, "VORN: socket error 19\n"}});
}

TEST_F(Endpoint, JoinsNothingWithoutInterfaces) {
  VORNRecvMulticastGroup group(GROUP);
  group.refCount = 0;
  EXPECT_EQ(group.IsValid(), 1) << "without joins";
  VORNDGram dgram(1, 0, nullptr, -1);
  EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP), 0) << "without a table";
  EXPECT_EQ(dgram.RecvMulticastRemove(GROUP), 0);
  const InterfaceTable incapable({FOUR[1], FOUR[2]});
  EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP), 1);
  EXPECT_EQ(CallsDrain().find("MEMBERSHIP"), std::string::npos);
}

}  // namespace
