#include "support/ScriptedInterfaces.h"

namespace {

using Groups = Scripted;

constexpr unsigned int GROUP = 0xEF010101;

const std::vector<ScriptedInterface> FOUR{
    {0x7F000001, LOOP | UP | CAST}, {0x0A000001, UP | CAST}, {0x0A000002, CAST}, {3, UP | CAST}};

TEST_F(Groups, AreJoinedAtTheFirstAndLeftAtTheLast) {
  const InterfaceTable table(FOUR);
  VORNDGram deaf(0, 0, nullptr, -1);
  {
    VORNDGram dgram(1, 0, nullptr, -1);
    CallsTake();
    const auto expect = [&](int (VORNDGram::*change)(unsigned int), const char* calls) {
      EXPECT_EQ((dgram.*change)(GROUP), 1);
      EXPECT_EQ((dgram.*change)(9) + (deaf.*change)(GROUP), 0);
      EXPECT_EQ(CallsTake(), calls);
    };
    const auto join = &VORNDGram::RecvMulticastGroupJoin,
               leave = &VORNDGram::RecvMulticastGroupLeave;
    expect(join, "optionSet 10 ef010101 0a000001; optionSet 10 ef010101 00000003");
    expect(join, "");
    expect(leave, "");
    Script().optionErrno[KEL_DGRAM_OPT_DROP_MEMBERSHIP] = {ENODEV, ENODEV};
    expect(leave, "optionSet 8 ef010101 0a000001; optionSet 8 ef010101 00000003");
    EXPECT_EQ(dgram.RecvMulticastGroupLeave(GROUP), 0);
    EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP) + dgram.RecvMulticastGroupJoin(GROUP), 2);
    for (const int failing : {1, 2, 0}) {
      System().failingAllocation = System().allocations + failing;
      EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP + 1), failing == 0 ? 1 : 0);
    }
    VORN_NIC[3].flags = NIC_MULTICAST;
    CallsTake();
  }
  EXPECT_EQ(CallsTake(), "optionSet 8 ef010101 0a000001; optionSet 8 ef010102 0a000001; "
                         "KelDGramRelease");
}

TEST_F(Groups, AJoinThatFailsIsNotCounted) {
  const auto expect = [](const std::vector<int>& errors, const std::vector<Message>& messages) {
    const InterfaceTable table(FOUR);
    MessagesExpect(messages, [&] {
      VORNDGram dgram(1, 0, nullptr, -1);
      auto& left = Script().optionErrno[KEL_DGRAM_OPT_ADD_MEMBERSHIP] = errors;
      const int joined = messages.empty() ? 1 : 0;
      EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP), joined);
      EXPECT_EQ(left.size() + static_cast<std::size_t>(joined), 1U);
      EXPECT_EQ(dgram.RecvMulticastGroupLeave(GROUP), joined);
    });
  };
  const std::string failed = "VORN: unable to add multicast address 239.1.1.1 on interface ";
  expect({EADDRINUSE, EADDRINUSE}, {});
  expect({ENOBUFS, 7}, {{0, failed + "10.0.0.1\n"}, {1, "VORN: socket error 105\n"}});
  expect({0, ENODEV, 7}, {{0, failed + "0.0.0.3\n"}, {1, "VORN: socket error 19\n"}});
  VORNDGram dgram(1, 0, nullptr, -1);
  EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP) + dgram.RecvMulticastRemove(GROUP), 0);
  const InterfaceTable incapable({FOUR[0], FOUR[2]});
  EXPECT_EQ(dgram.RecvMulticastGroupJoin(GROUP), 1);
  EXPECT_EQ(CallsTake().find("optionSet"), std::string::npos);
}

}  // namespace
