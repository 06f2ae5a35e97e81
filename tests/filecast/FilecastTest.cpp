#include "receiver/IncomingFile.h"
#include "sender/SendSchedule.h"
#include "wire/Checksum.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <unistd.h>
#include <utility>

namespace {

// What `write` writes of `parts`.
template <typename Write, typename... Parts>
std::string Written(Write write, const Parts&... parts) {
  std::string bytes(DATAGRAM_CAPACITY, '\0');
  VORNCDRStream stream{VORN_CDR_BIG_ENDIAN, bytes.data(), DATAGRAM_CAPACITY, 0};
  return write(&stream, parts...) ? bytes.substr(0, static_cast<std::size_t>(stream.position)) : "";
}

// A datagram as the reader that its header asks for reads it.
struct Reading {
  explicit Reading(std::string text) : bytes(std::move(text)) {
    VORNCDRStream s{VORN_CDR_BIG_ENDIAN, bytes.data(), static_cast<int>(bytes.size()), 0};
    isGood = HeaderRead(&s, &header) &&
             (header.kind == Kind::HEARTBEAT ? HeartbeatRead(&s, header, &heartbeat)
              : header.kind == Kind::SAMPLE  ? SampleRead(&s, &data, &length)
              : header.kind == Kind::WINDOW  ? WindowRead(&s, header, &head, &arrived)
                                             : EndRead(&s, &complete)) &&
             (data == nullptr || data + length == bytes.data() + bytes.size());
  }
  std::string bytes;
  Header header;
  Heartbeat heartbeat;
  WindowHead head;
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
          Written(WindowWrite, as(Kind::WINDOW, 33), WindowHead{0x11223344, 3, {}}, arrived),
          Written(EndWrite, as(Kind::END, 72), true)};
}

// The page shows each in lines of hexadecimal; what comes after two blanks explains them.
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
  constexpr std::size_t HEADER_SIZE = 28;
  std::mt19937 random(1);
  for (const std::string& datagram : Examples()) {
    const bool isSample = datagram[11] == 2;  // any length of one is whole
    for (std::size_t length = 0; length < datagram.size(); ++length)
      EXPECT_EQ(Reading(datagram.substr(0, length)).isGood, isSample && length > HEADER_SIZE)
          << length;
    EXPECT_TRUE(Reading(datagram).isGood);
    EXPECT_EQ(Reading(datagram + 'x').isGood, isSample);
    for (int i = 0; i < 20000; ++i) {
      std::string garbled = datagram;
      for (auto n = random() % 4 + 1; n > 0; --n)
        garbled[random() % garbled.size()] = static_cast<char>(random() % 2 == 0 ? random() : 255);
      Reading{garbled};  // the sanitizers look on
    }
  }
}

// One word of an example is another one. The file has 72 samples of 1408 bytes.
TEST(DatagramTest, IsRefusedWithAWordThatCannotBeTrue) {
  const struct {
    const char* what;
    Kind kind;
    std::size_t offset;
    std::uint32_t word;
    bool isGood;
  } rows[] = {
      {"other magic", Kind::HEARTBEAT, 0, 0x56464332, false},
      {"no session", Kind::HEARTBEAT, 4, 0, false},
      {"kind 0", Kind::END, 8, 0, false},
      {"kind 5", Kind::END, 8, 5, false},
      {"negative number", Kind::HEARTBEAT, 20, 0x80000000, false},
      {"last sample", Kind::HEARTBEAT, 24, 72, true},
      {"sample after the last", Kind::HEARTBEAT, 24, 73, false},
      {"port 0", Kind::HEARTBEAT, 32, 0, false},
      {"largest port", Kind::HEARTBEAT, 32, 65535, true},
      {"port above 16 bits", Kind::HEARTBEAT, 32, 65536, false},
      {"file just below 1 TiB", Kind::HEARTBEAT, 36, 0xFF, true},
      {"file above 1 TiB", Kind::HEARTBEAT, 36, 0x100, false},
      {"samples of 0 bytes", Kind::HEARTBEAT, 52, 0, false},
      {"samples too long", Kind::HEARTBEAT, 52, 1409, false},
      {"name shorter", Kind::HEARTBEAT, 56, 8, false},
      {"name longer", Kind::HEARTBEAT, 56, 10, false},
      {"hidden name", Kind::HEARTBEAT, 60, 0x2E6F7465, false},
      {"number below the bitmap's", Kind::WINDOW, 24, 32, false},
      {"number above the bitmap's", Kind::WINDOW, 24, 34, false},
      {"failed", Kind::WINDOW, 36, 2, true},
      {"state 3", Kind::WINDOW, 36, 3, false},
      {"interrupted", Kind::END, 28, 0, true},
      {"flag 2", Kind::END, 28, 2, false},
  };
  const std::vector<std::string> examples = Examples();
  for (const auto& row : rows) {
    std::string datagram = examples[static_cast<std::size_t>(row.kind) - 1];
    for (std::size_t i = 0; i < 4; ++i)
      datagram[row.offset + i] = static_cast<char>(row.word >> (24 - 8 * i));
    EXPECT_EQ(Reading(datagram).isGood, row.isGood) << row.what;
  }
  const Header header{1, Kind::WINDOW, VORNNtpTime(), SequenceNumber()};
  const Bitmap arrived(5, SequenceNumber(), 0);
  EXPECT_FALSE(Reading(Written(WindowWrite, header, WindowHead(), arrived)).isGood) << "sample 0";
  const Heartbeat longest{1, 1, {1, 0, 1, std::string(256, 'a')}};
  const Header beat{1, Kind::HEARTBEAT, VORNNtpTime(), SequenceNumber()};
  EXPECT_FALSE(Reading(Written(HeartbeatWrite, beat, longest)).isGood) << "name of 256 bytes";
}

TEST(DatagramTest, NamesAreThoseOfPlainFiles) {
  for (const std::string& name :
       {std::string("a"), std::string("notes.txt"), std::string("with blank"),
        std::string("\xC3\xA4"), std::string(255, 'a')})
    EXPECT_TRUE(FileNameIsSafe(name)) << name;
  for (const std::string& name :
       {std::string(""), std::string("."), std::string("../a"), std::string("/a"),
        std::string("a/b"), std::string(".hidden"), std::string("a\nb"), std::string("\x1B[2J"),
        std::string("\x7F"), std::string("a\0", 2), std::string(256, 'a')})
    EXPECT_FALSE(FileNameIsSafe(name)) << name;
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
  std::unique_ptr<ReceiveWindow> window;
  std::string copy;
  int begin = 0, end = INT32_MAX;  // the rounds in which it comes and dies

  void Hear(const Reading& got) {
    if (got.data != nullptr && window && window->SampleIsWanted(got.header.number, got.length)) {
      std::copy_n(got.data, got.length,
                  copy.data() + window->FileGet().SampleOffset(got.header.number.IntegerGet()));
      window->SampleStored(got.header.number);
    } else if (got.data == nullptr) {
      if (!window)
        window = std::make_unique<ReceiveWindow>(got.heartbeat.file);
      copy.resize(static_cast<std::size_t>(got.heartbeat.file.size));
      Bitmap arrived(0, SequenceNumber(), 0);
      window->ArrivedGet(got.header.number, &arrived);
      const WindowHead head{1, got.heartbeat.count, static_cast<TransferState>(window->IsWhole())};
      const Header header{99, Kind::WINDOW, got.header.time, arrived.lead};
      up.Send(Written(WindowWrite, header, head, arrived));
    }
  }
};

bool AllAreDone(const SendSchedule& sender, std::size_t expected) {
  return sender.PeersGet().size() == expected &&
         sender.CountIn(TransferState::RECEIVING) == sender.LostCount();
}

// A round takes 10 ms. Host 3 comes after a third of the rounds that nothing but loss would make
// more, and host 4 dies then.
void TransferCheck(unsigned int seed) {
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::string text(100000 + random() % 300000, '\0');
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
  SendSchedule sender({text.size(), 7, 500, "f"});
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
  for (; round < 3000 && !AllAreDone(sender, hosts.size()); ++round) {
    const VORNNtpTime now(1 + round / 100, 10000000UL * static_cast<unsigned long>(round % 100));
    const Header header{99, Kind::HEARTBEAT, now, SequenceNumber::FromInteger(sender.HighestGet())};
    send(Written(HeartbeatWrite, header, sender.HeartbeatNext(1)));
    for (int burst = 0; burst < 20; ++burst)
      if (const auto number = sender.SampleNext()) {
        const char* bytes = text.data() + sender.FileGet().SampleOffset(*number);
        send(Written(SampleWrite,
                     Header{99, Kind::SAMPLE, now, SequenceNumber::FromInteger(*number)}, bytes,
                     sender.FileGet().SampleLength(*number)));
      }
    for (unsigned int i = 0; i < hosts.size(); ++i) {
      for (const std::string& bytes : std::exchange(hosts[i].down.onTheWay, {}))
        hosts[i].Hear(Reading(bytes));
      for (const std::string& bytes : std::exchange(hosts[i].up.onTheWay, {})) {
        const Reading got(bytes);
        ASSERT_TRUE(got.isGood);
        EXPECT_TRUE(sender.WindowApply(got.head, got.arrived, {i + 1, 1}, now));
      }
    }
    sender.LostPeersFind(now, VORNNtpTime(2, 0));
  }
  for (unsigned int i = 0; i < 4; ++i)
    EXPECT_EQ(hosts[i].copy, text) << i;
  EXPECT_EQ(sender.CountIn(TransferState::COMPLETE), 4);
  EXPECT_EQ(sender.LostCount(), 1);
  // What five links lose, some of it twice, and the third that the late receiver missed.
  EXPECT_LE(sender.RepairsGet(), static_cast<std::uint64_t>(sender.HighestGet()) * 8 / 10);
}

TEST(TransferTest, ReachesEveryLivingReceiverWhole) {
  for (unsigned int seed = 1; seed <= 20; ++seed)
    TransferCheck(seed);
}

// Five samples of ten are sent, and one heartbeat.
TEST(SendScheduleTest, AppliesNoWindowThatCannotBeTrue) {
  SendSchedule sender({5000, 7, 500, "f"});
  sender.HeartbeatNext(1);
  for (int i = 0; i < 5; ++i)
    sender.SampleNext();
  const struct {
    const char* what;
    std::int64_t lead;
    int size;
    std::uint32_t heartbeat;
    TransferState state;
    bool isApplied;
  } rows[] = {
      {"all that was sent is missing", 1, 5, 1, TransferState::RECEIVING, true},
      {"all that was sent is there", 6, 0, 1, TransferState::RECEIVING, true},
      {"failed", 1, 5, 1, TransferState::FAILED, true},
      {"a lead that was not sent", 7, 0, 1, TransferState::RECEIVING, false},
      {"an end that was not sent", 1, 6, 1, TransferState::RECEIVING, false},
      {"the largest lead", INT64_MAX, 256, 1, TransferState::RECEIVING, false},
      {"a heartbeat to come", 1, 5, 2, TransferState::RECEIVING, false},
      {"no heartbeat", 1, 5, 0, TransferState::RECEIVING, false},
      {"complete with half of the file", 6, 0, 1, TransferState::COMPLETE, false},
  };
  std::uint32_t id = 0;
  std::size_t applied = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const Bitmap arrived(row.size, SequenceNumber::FromInteger(row.lead), 0);
    const WindowHead head{++id, row.heartbeat, row.state};
    EXPECT_EQ(sender.WindowApply(head, arrived, {1, 1}, VORNNtpTime()), row.isApplied);
    applied += row.isApplied ? 1 : 0;
    EXPECT_EQ(sender.PeersGet().size(), applied);
  }
}

TEST(SendScheduleTest, RunsOneWindowAheadOfTheSlowestThatKeepsUp) {
  SendSchedule sender({500000, 7, 500, "f"});
  const auto hear = [&](std::uint32_t id, int lead) {
    sender.HeartbeatNext(1);
    return sender.WindowApply({id, 1, {}}, Bitmap(0, SequenceNumber(lead), 0), {1, 1}, {});
  };
  const struct {
    const char* what;
    std::uint32_t id;
    int lead;
    std::int64_t highest;
  } rows[] = {
      {"the first window", 1, 1, 256}, {"a window that has moved", 1, 101, 356},
      {"a late receiver", 2, 1, 356},  {"the first again", 1, 201, 456},
      {"an old window", 1, 150, 456},
  };
  for (const auto& row : rows) {
    EXPECT_TRUE(hear(row.id, row.lead)) << row.what;
    while (sender.SampleNext()) {
    }
    EXPECT_EQ(sender.HighestGet(), row.highest) << row.what;
  }
}

TEST(SendScheduleTest, KeepsReceiversApartAndGivesUpTheSilent) {
  SendSchedule sender({5000, 7, 500, "f"});
  sender.HeartbeatNext(1);
  const auto hear = [&](std::uint32_t id, TransferState state, int second) {
    return sender.WindowApply({id, 1, state}, Bitmap(0, SequenceNumber(1), 0), {1, 1},
                              VORNNtpTime(second, 0));
  };
  for (std::uint32_t id = 1; id <= 64; ++id)
    EXPECT_TRUE(hear(id, TransferState::RECEIVING, 0)) << id;
  EXPECT_FALSE(hear(65, TransferState::RECEIVING, 0));
  EXPECT_TRUE(hear(1, TransferState::FAILED, 0));
  EXPECT_TRUE(hear(1, TransferState::RECEIVING, 0));
  EXPECT_EQ(sender.CountIn(TransferState::FAILED), 1);
  sender.LostPeersFind(VORNNtpTime(2, 0), VORNNtpTime(2, 0));
  EXPECT_EQ(sender.LostCount(), 0);
  EXPECT_TRUE(hear(2, TransferState::RECEIVING, 1));
  sender.LostPeersFind(VORNNtpTime(3, 0), VORNNtpTime(2, 0));
  EXPECT_EQ(sender.LostCount(), 62);
  EXPECT_TRUE(hear(3, TransferState::RECEIVING, 3));
  EXPECT_EQ(sender.LostCount(), 61);
}

// Of 300 samples of 500 bytes, the last one with 7, only the second has arrived.
TEST(ReceiveWindowTest, WantsWhatIsMissingInItsProperLength) {
  ReceiveWindow window({299 * 500 + 7, 7, 500, "f"});
  window.SampleStored(SequenceNumber(2));
  const struct {
    int number;
    int length;
    bool isWanted;
  } rows[] = {{0, 500, false}, {1, 499, false},  {1, 500, true},    {1, 501, false},
              {2, 500, false}, {256, 500, true}, {257, 500, false}, {300, 7, false}};
  for (const auto& row : rows)
    EXPECT_EQ(window.SampleIsWanted(SequenceNumber(row.number), row.length), row.isWanted)
        << row.number << ", " << row.length;
  window.SampleStored(SequenceNumber(1));
  EXPECT_EQ(window.LeadGet(), 3);
  for (int number = 3; number <= 200; ++number)
    window.SampleStored(SequenceNumber(number));
  EXPECT_TRUE(window.SampleIsWanted(SequenceNumber(300), 7));
  EXPECT_FALSE(window.SampleIsWanted(SequenceNumber(300), 500));
  Bitmap arrived(0, SequenceNumber(), 0);
  for (const int highest : {200, 201, 300}) {
    window.ArrivedGet(SequenceNumber(highest), &arrived);
    EXPECT_EQ(arrived.size, highest - 200);
  }
}

// How a file of 1000 samples ends in a folder of its own. Samples come backwards, 127 and 256 at a
// time: as many as may wait to be written, and then the farthest that the window takes.
TEST(IncomingFileTest, IsWrittenWholeOrRemovedWithItsReason) {
  constexpr int ALL = 1000;
  std::string text(ALL * 10 - 3, '\0');
  std::mt19937 random(1);
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
  const std::uint64_t sum = Checksum(0, text.data(), text.size());
  const auto nothing = [](IncomingFile&) {};
  const auto silenceOf = [](const VORNNtpTime& time) {
    return [time](IncomingFile& file) { file.SilenceCheck(time, VORNNtpTime(2, 0)); };
  };
  const auto add = [&](IncomingFile& file, int number) {
    file.SampleAdd(SequenceNumber(number), &text[static_cast<std::size_t>(number - 1) * 10],
                   number == ALL ? 7 : 10, VORNNtpTime());
  };
  const auto end = [&](IncomingFile& file) {
    file.EndNote(true, VORNNtpTime());
    add(file, ALL);
  };
  const struct {
    const char* what;
    std::uint64_t checksum;
    std::function<void(IncomingFile&)> event;
    int samples;  // that arrive before it
    TransferState state;
    ExitCode code;
    bool isOver;
  } rows[] = {
      {"whole", sum, nothing, ALL, TransferState::COMPLETE, ExitCode::OK, false},
      {"told", sum, silenceOf({2, 1}), ALL, TransferState::COMPLETE, ExitCode::OK, true},
      {"told and ended", sum, end, ALL, TransferState::COMPLETE, ExitCode::OK, true},
      {"damaged", sum + 1, nothing, ALL, TransferState::FAILED, ExitCode::CHECKSUM_WRONG, false},
      {"patient", sum, silenceOf({2, 0}), ALL - 1, TransferState::RECEIVING, ExitCode::OK, false},
      {"silent", sum, silenceOf({2, 1}), ALL - 1, TransferState::FAILED, ExitCode::SENDER_SILENT,
       true},
      {"ended too early", sum, end, ALL - 1, TransferState::FAILED, ExitCode::SENDER_ENDED, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    char path[] = "/tmp/filecast-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    const int folder = open(path, O_RDONLY | O_DIRECTORY);
    {
      IncomingFile file(1, {text.size(), row.checksum, 10, "f"}, 1, folder, "id", VORNNtpTime());
      int first = 1;
      for (int size = 127; first <= row.samples; size = 383 - size) {
        for (int number = std::min(first + size - 1, row.samples); number >= first; --number)
          add(file, number);
        first += size;
      }
      row.event(file);
      EXPECT_EQ(file.StateGet(), row.state);
      EXPECT_EQ(file.FailureGet() ? file.FailureGet()->code : ExitCode::OK, row.code);
      EXPECT_EQ(file.IsOver(), row.isOver);
    }
    close(folder);
    std::ifstream stream(std::string(path) + "/f");
    const std::string written{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(written == text, row.state == TransferState::COMPLETE);
    EXPECT_EQ(std::filesystem::remove_all(path), row.state == TransferState::COMPLETE ? 2U : 1U);
  }
}

}  // namespace
