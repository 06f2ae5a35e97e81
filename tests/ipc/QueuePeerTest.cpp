// Programs of another kind at the other end: one that knows nothing but the layout, and one of
// another width.
#include "ipc/IpcHost.h"
#include "ipc/WireForms.h"

#include <algorithm>

namespace {

using QueuePeer = EmptiedHost;

constexpr int SIZE = 2000;

std::string FormsText(int number, VORNCDRByteOrder order) {
  return WireForms(static_cast<std::uint32_t>(number)).Text(order);
}

std::string Reversed(int number) {
  std::string text = FormsText(number, VORN_CDR_BIG_ENDIAN);
  std::reverse(text.begin(), text.end());
  return text;
}

std::string InOtherOrder(int number) { return FormsText(number, VORN_CDR_LITTLE_ENDIAN); }

// Sends to a program that puts an answer to each message into a queue that it has made.
void AnswersExpect(const std::string& program, int count, std::string (*answer)(int number)) {
  OwnQueue there(1, 1, SIZE);
  Program peer(program + " 1 2 " + std::to_string(count) + " " + std::to_string(SIZE));
  ASSERT_TRUE(Await([] { return Queue(1, 2).IsValid() == 1; })) << "no queue for the answers";
  OwnQueue back(1, 2);
  Child sender([&] {
    for (int i = 0; i < count; ++i) {
      const std::string text = FormsText(i, VORN_CDR_BIG_ENDIAN);
      if (!Await([&] { return there.Send(text.data(), static_cast<int>(text.size())) == 1; }))
        return 1;
    }
    return 0;
  });
  ASSERT_TRUE(Await([&] { return back.SpaceGet() < SIZE; })) << "nothing came back";
  for (int i = 0; i < count; ++i)
    ASSERT_EQ(back.Receive(300), answer(i)) << i;
  EXPECT_EQ(sender.Wait(), 0);
  peer.Expect(0);
}

}  // namespace

TEST_F(QueuePeer, ProgramInAnotherLanguageReceivesAndSends) {
  if (std::system("python3 -c 0 2>/dev/null") != 0)
    GTEST_SKIP() << "no python3";
  AnswersExpect("python3 " QUEUE_PEER, 1000, Reversed);
}

TEST_F(QueuePeer, ProcessesOfBothWidthsExchangeDatagramsWithEveryWireForm) {
  if (WIDTH_PEER[0] == '\0')
    GTEST_SKIP() << WIDTH_REASON;
  constexpr int COUNT = 600;
  VORNDGram endpoint(0, 0, nullptr, -1);
  KELNetioAddr peer;
  const int port = endpoint.bind(&endpoint, 0x7F000001, 0);
  Program answering(WIDTH_PEER " " + std::to_string(port) + " " + std::to_string(COUNT));
  EXPECT_EQ(WireFormsReceive(endpoint, &peer), "");
  for (int i = 0; i < COUNT; ++i) {
    WireFormsSend(endpoint, &peer, FormsText(i, VORN_CDR_BIG_ENDIAN));
    ASSERT_EQ(WireFormsReceive(endpoint, &peer), InOtherOrder(i)) << i;
  }
  answering.Expect(0);
}

TEST_F(QueuePeer, ProcessesOfBothWidthsExchangeMessagesWithEveryWireForm) {
  if (WIDTH_PEER[0] == '\0')
    GTEST_SKIP() << WIDTH_REASON;
  AnswersExpect(WIDTH_PEER, 100000, InOtherOrder);
}
