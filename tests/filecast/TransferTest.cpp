#include "LossyLink.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Host {
  explicit Host(unsigned int seed) : down(seed), up(seed + 100) {}
  LossyLink down, up;
  std::unique_ptr<ReceiverLogic> logic;
  std::string copy;
  int begin = 0;        ///< round in which it comes
  int end = INT32_MAX;  ///< round in which it dies
  std::string answer;

  void Take(std::string bytes) {
    VORNCDRStream stream = StreamOver(&bytes);
    Header header;
    ASSERT_TRUE(HeaderRead(&stream, &header));
    const char* data = nullptr;
    int length = 0;
    if (header.kind == Kind::HEARTBEAT) {
      Heartbeat heartbeat;
      ASSERT_TRUE(HeartbeatRead(&stream, header, &heartbeat));
      if (!logic) {
        logic = std::make_unique<ReceiverLogic>(heartbeat.file, header.session);
        copy.assign(heartbeat.file.size, '\0');
      }
      Bitmap window(0, SequenceNumber(), 0);
      logic->WindowGet(header.number, &window);
      header.kind = Kind::WINDOW;
      header.number = window.lead;
      const auto state = logic->IsWhole() ? ReceiverState::COMPLETE : ReceiverState::RECEIVING;
      up.Send(Written([&](VORNCDRStream* out) {
        return WindowWrite(out, header, {1, heartbeat.count, state}, window);
      }));
    } else if (logic && SampleRead(&stream, &data, &length) &&
               logic->SampleIsWanted(header.number, length)) {
      copy.replace(logic->FileGet().SampleOffset(NumberOf(header.number)),
                   static_cast<std::size_t>(length), data, static_cast<std::size_t>(length));
      logic->SampleStored(header.number);
    }
  }
};

// One sender, five receivers over links that lose a twentieth each way. Host 3 comes when a third
// of the rounds that a loss-free transfer needs is over, host 4 dies there. A round takes 10 ms.
class Transfer : public testing::TestWithParam<unsigned int> {};

TEST_P(Transfer, ReachesEveryLivingReceiverWhole) {
  std::mt19937 random(GetParam());
  std::string text(random() % 400000, '\0');
  for (char& byte : text)
    byte = static_cast<char>(random());
  SenderLogic sender({text.size(), 7, 500, "f"}, 99);
  std::vector<std::unique_ptr<Host>> hosts;
  for (unsigned int i = 0; i < 5; ++i)
    hosts.push_back(std::make_unique<Host>(GetParam() * 10 + i));
  const int third = static_cast<int>(text.size() / 500 / 20 / 3);
  hosts[3]->begin = third;
  hosts[4]->end = third;
  Bitmap window(0, SequenceNumber(), 0);
  int round = 0;
  for (; round < 3000 && !sender.IsFinished(4 + (third > 1 ? 1 : 0)); ++round) {
    const VORNNtpTime now(1 + round / 100, 10000000UL * static_cast<unsigned long>(round % 100));
    Header header{99, Kind::HEARTBEAT, now, SequenceOf(sender.HighestGet())};
    const auto broadcast = [&](const std::string& bytes) {
      for (const auto& host : hosts)
        if (round >= host->begin && round < host->end)
          host->down.Send(bytes);
    };
    const Heartbeat heartbeat = sender.HeartbeatNext(1);
    broadcast(Written([&](VORNCDRStream* out) { return HeartbeatWrite(out, header, heartbeat); }));
    for (int burst = 0; burst < 20; ++burst)
      if (const auto number = sender.SampleNext()) {
        header = {99, Kind::SAMPLE, now, SequenceOf(*number)};
        const FileDescription& file = sender.FileGet();
        broadcast(Written([&](VORNCDRStream* out) {
          return SampleWrite(out, header, text.data() + file.SampleOffset(*number),
                             file.SampleLength(*number));
        }));
      }
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      for (const std::string& bytes : hosts[i]->down.Arrive())
        hosts[i]->Take(bytes);
      for (std::string bytes : hosts[i]->up.Arrive()) {
        VORNCDRStream stream = StreamOver(&bytes);
        Window head;
        ASSERT_TRUE(HeaderRead(&stream, &header) && WindowRead(&stream, header, &head, &window));
        EXPECT_TRUE(sender.WindowTake(head, window, static_cast<unsigned int>(i + 1), 1, now));
      }
    }
    sender.LostReceiversFind(now, VORNNtpTime(2, 0));
  }
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_TRUE(hosts[i]->logic && hosts[i]->logic->IsWhole() && hosts[i]->copy == text) << i;
  EXPECT_EQ(sender.CountIn(ReceiverState::COMPLETE), 4);
  EXPECT_LT(round, 3000);
  // Repairs stay near what was lost, but for the late receiver's share: a third of the file.
  EXPECT_LE(sender.RepairsGet(), static_cast<std::uint64_t>(sender.HighestGet()) * 8 / 10 + 40);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Transfer, testing::Range(1U, 21U));

TEST(SenderLogicTest, TakesNoWindowThatCannotBeTrue) {
  SenderLogic sender({5000, 7, 500, "f"}, 99);
  sender.HeartbeatNext(1);
  for (int i = 0; i < 5; ++i)
    sender.SampleNext();
  const struct {
    std::int64_t lead;
    int size;
    std::uint32_t heartbeat;
    ReceiverState state;
    bool taken;
  } rows[] = {{1, 5, 1, ReceiverState::RECEIVING, true},
              {6, 0, 1, ReceiverState::RECEIVING, true},
              {7, 0, 1, ReceiverState::RECEIVING, false},
              {1, 6, 1, ReceiverState::RECEIVING, false},
              {1, 5, 2, ReceiverState::RECEIVING, false},
              {1, 5, 0, ReceiverState::RECEIVING, false},
              {6, 0, 1, ReceiverState::COMPLETE, false},
              {1, 5, 1, ReceiverState::FAILED, true},
              {INT64_MAX, 256, 1, ReceiverState::RECEIVING, false}};
  std::uint32_t id = 0;
  for (const auto& row : rows)
    EXPECT_EQ(sender.WindowTake({++id, row.heartbeat, row.state},
                                Bitmap(row.size, SequenceOf(row.lead), 0), 1, 1, VORNNtpTime()),
              row.taken)
        << "row " << id;
}

}  // namespace
