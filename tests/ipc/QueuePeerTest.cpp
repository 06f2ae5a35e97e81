// Programs of another kind at the other end: one that knows nothing but the layout, and one of
// another width.
#include "ipc/IpcHost.h"
#include "ipc/WireForms.h"

#include <algorithm>

namespace {

using QueuePeer = EmptiedHost;

constexpr int SIZE = 20000;

std::string MessageOf(int number) {
  std::string text(static_cast<std::size_t>(number * 37 % 290), ' ');
  for (std::size_t i = 0; i < text.size(); ++i)
    text[i] = static_cast<char>(static_cast<std::size_t>(number) * 31 + i);
  return text;
}

// Starts a shell command in place of this process.
int Execute(const std::string& command) {
  execlp("sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
  return 1;
}

// Sends to a program that puts each message, reversed, into another queue.
void ReversedExpect(const std::string& program, int count) {
  OwnQueue there(1, 1, SIZE);
  OwnQueue back(1, 2, SIZE);
  Child peer([&] { return Execute(program + " 1 2 " + std::to_string(count)); });
  Child sender([&] {
    for (int i = 0; i < count; ++i) {
      const std::string text = MessageOf(i);
      if (!Await([&] { return there.Send(text.data(), static_cast<int>(text.size())) == 1; }))
        return 1;
    }
    return 0;
  });
  ASSERT_TRUE(Await([&] { return back.SpaceGet() < SIZE; })) << "nothing came back";
  for (int i = 0; i < count; ++i) {
    std::string text = back.Receive(300);
    std::reverse(text.begin(), text.end());
    ASSERT_EQ(text, MessageOf(i)) << i;
  }
  EXPECT_EQ(sender.Wait(), 0);
  EXPECT_EQ(peer.Wait(), 0);
}

}  // namespace

TEST_F(QueuePeer, ProgramInAnotherLanguageReceivesAndSends) {
  if (std::system("python3 -c 0 2>/dev/null") != 0)
    GTEST_SKIP() << "no python3";
  ReversedExpect("python3 " QUEUE_PEER, 100);
}

TEST_F(QueuePeer, ProcessesOfBothWidthsExchangeMessages) {
  if (WIDTH_PEER[0] == '\0')
    GTEST_SKIP() << WIDTH_REASON;
  ReversedExpect(WIDTH_PEER " queue", 100000);
}

TEST_F(QueuePeer, ProcessesOfBothWidthsExchangeDatagramsWithEveryWireForm) {
  if (WIDTH_PEER[0] == '\0')
    GTEST_SKIP() << WIDTH_REASON;
  VORNDGram endpoint(0, 0, nullptr, -1);
  const int port = endpoint.bind(&endpoint, 0x7F000001, 0);
  Child peer([&] { return Execute(WIDTH_PEER " datagram " + std::to_string(port)); });
  EXPECT_EQ(WireFormsExchange(endpoint, {}, false), DATAGRAM_COUNT);
  EXPECT_EQ(peer.Wait(), 0);
}
