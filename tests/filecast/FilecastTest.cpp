#include "ReceiverLogic.h"
#include "SenderLogic.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <utility>

namespace {

// What `write` writes of `parts`.
template <typename Write, typename... Parts>
std::string Written(Write write, const Parts&... parts) {
  std::string bytes(DATAGRAM_CAPACITY, '\0');
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes.data(), DATAGRAM_CAPACITY, 0};
  return write(&stream, parts...) ? bytes.substr(0, static_cast<std::size_t>(stream.position)) : "";
}

// A datagram as the reader that its header asks for takes it.
struct Reading {
  explicit Reading(std::string text) : bytes(std::move(text)) {
    VORNCDRStream s{VORN_CDR_BIG_ENDIAN, bytes.data(), static_cast<int>(bytes.size()), 0};
    isGood = HeaderRead(&s, &header) &&
             (header.kind == Kind::HEARTBEAT ? HeartbeatRead(&s, header, &heartbeat)
              : header.kind == Kind::SAMPLE  ? SampleRead(&s, &data, &length)
              : header.kind == Kind::WINDOW  ? WindowRead(&s, header, &window, &arrived)
                                             : EndRead(&s, &complete)) &&
             (data == nullptr || data + length == bytes.data() + bytes.size());
  }
  std::string bytes;
  Header header;
  Heartbeat heartbeat;
  Window window;
  Bitmap arrived{0, SequenceNumber(), 0};
  const char* data = nullptr;
  int length = 0;
  bool complete = false, isGood = false;
};

std::vector<std::string> Examples() {
  Bitmap arrived(5, SequenceNumber(33), 0);
  arrived.BitSet(SequenceNumber(34), 1);
  const FileDescription file{100000, 0x0123456789ABCDEF, 1408, "notes.txt"};
  const auto as = [](Kind kind, int number) {
    return Header{0xA1B2C3D4, kind, VORNNtpTime::FromWords(100, 1U << 31), SequenceNumber(number)};
  };
  return {Written(HeartbeatWrite, as(Kind::HEARTBEAT, 37), Heartbeat{3, 40001, file}),
          Written(SampleWrite, as(Kind::SAMPLE, 2), "hello", 5),
          Written(WindowWrite, as(Kind::WINDOW, 33), Window{0x11223344, 3, {}}, arrived),
          Written(EndWrite, as(Kind::END, 72), true)};
}

// The page shows each in lines of hexadecimal; what is behind two blanks explains them.
TEST(DatagramTest, HasTheBytesThatThePageShows) {
  std::ifstream page(FILECAST_PAGE);
  std::string shown;
  for (std::string line; std::getline(page, line);)
    if (line.starts_with("0x "))
      shown += line.substr(3, line.find("  ", 3) - 3);
  std::erase(shown, ' ');
  std::string written;
  for (const std::string& datagram : Examples())
    for (const char byte : datagram)
      for (const int shift : {4, 0})
        written += "0123456789abcdef"[static_cast<unsigned char>(byte) >> shift & 15];
  EXPECT_EQ(shown, written);
}

TEST(DatagramTest, IsReadWholeOrNotAtAll) {
  std::mt19937 random(1);
  for (const std::string& datagram : Examples()) {
    const bool isSample = datagram[11] == 2;  // any length of one is whole
    for (std::size_t length = 0; length < datagram.size(); ++length)
      EXPECT_EQ(Reading(datagram.substr(0, length)).isGood, isSample && length > 28) << length;
    EXPECT_TRUE(Reading(datagram).isGood && Reading(datagram + 'x').isGood == isSample);
    for (int i = 0; i < 20000; ++i) {
      std::string garbled = datagram;
      for (auto n = random() % 4 + 1; n > 0; --n)
        garbled[random() % garbled.size()] = static_cast<char>(random() % 2 == 0 ? random() : 255);
      Reading{garbled};  // the sanitizers look on
    }
  }
}

TEST(DatagramTest, NamesAreThoseOfPlainFiles) {
  for (const std::string name : {"a", "notes.txt", "with blank", "\xC3\xA4"})
    EXPECT_TRUE(FileNameIsSafe(name)) << name;
  for (const std::string name : {"", ".", "..", "../a", "/a", "a/b", ".hidden", "a\nb", "\x1B[2J"})
    EXPECT_FALSE(FileNameIsSafe(name)) << name;
  EXPECT_FALSE(FileNameIsSafe(std::string("a\0", 2)) || FileNameIsSafe(std::string(256, 'a')));
}

// A link that loses, repeats and reorders what it carries.
struct LossyLink {
  std::mt19937 random;
  std::vector<std::string> onTheWay;

  void Send(const std::string& datagram) {
    for (auto copies = random() % 20; copies > 0; copies /= 19)  // 5 % none, 5 % two
      onTheWay.push_back(datagram);
    if (onTheWay.size() > 1 && random() % 4 == 0)
      std::swap(onTheWay.back(), onTheWay[random() % onTheWay.size()]);
  }
};

struct Host {
  LossyLink down, up;
  std::unique_ptr<ReceiverLogic> logic;
  std::string copy;
  int begin = 0, end = INT32_MAX;  // the rounds in which it comes and dies

  void Take(const Reading& got) {
    if (got.data != nullptr && logic && logic->SampleIsWanted(got.header.number, got.length)) {
      std::copy_n(got.data, got.length,
                  copy.data() + logic->FileGet().SampleOffset(NumberOf(got.header.number)));
      logic->SampleStored(got.header.number);
    } else if (got.data == nullptr) {
      if (!logic)
        logic = std::make_unique<ReceiverLogic>(got.heartbeat.file, 99);
      copy.resize(static_cast<std::size_t>(got.heartbeat.file.size));
      Bitmap window(0, SequenceNumber(), 0);
      logic->WindowGet(got.header.number, &window);
      const Window w{1, got.heartbeat.count, static_cast<ReceiverState>(logic->IsWhole())};
      up.Send(
          Written(WindowWrite, Header{99, Kind::WINDOW, got.header.time, window.lead}, w, window));
    }
  }
};

// A round takes 10 ms. Host 3 comes after a third of the rounds that nothing but loss would make
// more, and host 4 dies then.
void TransferCheck(unsigned int seed) {
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::string text(100000 + random() % 300000, '\0');
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
  SenderLogic sender({text.size(), 7, 500, "f"}, 99);
  std::vector<Host> hosts;
  for (unsigned int i = seed * 10; hosts.size() < 5; ++i)
    hosts.push_back({{std::mt19937(i), {}}, {std::mt19937(i + 1000), {}}, nullptr, ""});
  hosts[3].begin = hosts[4].end = static_cast<int>(text.size() / 500 / 20 / 3);
  int round = 0;
  const auto send = [&](const std::string& bytes) {
    for (Host& host : hosts)
      if (round >= host.begin && round < host.end)
        host.down.Send(bytes);
  };
  for (; round < 3000 && !sender.IsFinished(5); ++round) {
    const VORNNtpTime now(1 + round / 100, 10000000UL * static_cast<unsigned long>(round % 100));
    const Header header{99, Kind::HEARTBEAT, now, SequenceOf(sender.HighestGet())};
    send(Written(HeartbeatWrite, header, sender.HeartbeatNext(1)));
    for (int burst = 0; burst < 20; ++burst)
      if (const auto number = sender.SampleNext()) {
        const char* bytes = text.data() + sender.FileGet().SampleOffset(*number);
        send(Written(SampleWrite, Header{99, Kind::SAMPLE, now, SequenceOf(*number)}, bytes,
                     sender.FileGet().SampleLength(*number)));
      }
    for (unsigned int i = 0; i < hosts.size(); ++i) {
      for (const std::string& bytes : std::exchange(hosts[i].down.onTheWay, {}))
        hosts[i].Take(Reading(bytes));
      for (const std::string& bytes : std::exchange(hosts[i].up.onTheWay, {})) {
        const Reading got(bytes);
        ASSERT_TRUE(got.isGood);
        EXPECT_TRUE(sender.WindowTake(got.window, got.arrived, i + 1, 1, now));
      }
    }
    sender.LostReceiversFind(now, VORNNtpTime(2, 0));
  }
  for (unsigned int i = 0; i < 4; ++i)
    EXPECT_TRUE(hosts[i].logic && hosts[i].logic->IsWhole() && hosts[i].copy == text) << i;
  EXPECT_TRUE(sender.CountIn(ReceiverState::COMPLETE) == 4 && sender.LostCount() == 1);
  // What five links lose, some of it twice, and the third that the late receiver missed.
  EXPECT_LE(sender.RepairsGet(), static_cast<std::uint64_t>(sender.HighestGet()) * 8 / 10);
}

TEST(TransferTest, ReachesEveryLivingReceiverWhole) {
  for (unsigned int seed = 1; seed <= 20; ++seed)
    TransferCheck(seed);
}

TEST(SenderLogicTest, TakesNoWindowThatCannotBeTrue) {
  SenderLogic sender({5000, 7, 500, "f"}, 99);
  sender.HeartbeatNext(1);
  for (int i = 0; i < 5; ++i)
    sender.SampleNext();
  std::uint32_t id = 0;
  const auto takes = [&](std::int64_t lead, int size, std::uint32_t heartbeat, int state) {
    return sender.WindowTake({++id, heartbeat, static_cast<ReceiverState>(state)},
                             Bitmap(size, SequenceOf(lead), 0), 1, 1, VORNNtpTime());
  };
  EXPECT_TRUE(takes(1, 5, 1, 0) && takes(6, 0, 1, 0) && takes(1, 5, 1, 2));
  EXPECT_FALSE(takes(7, 0, 1, 0) || takes(1, 6, 1, 0) || takes(INT64_MAX, 256, 1, 0)) << id;
  EXPECT_FALSE(takes(1, 5, 2, 0) || takes(1, 5, 0, 0) || takes(6, 0, 1, 1)) << id;
}

}  // namespace
