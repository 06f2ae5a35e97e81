#include "Reading.h"
#include "program/Progress.h"
#include "receiver/IncomingFile.h"
#include "wire/Checksum.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <unistd.h>

namespace {

std::vector<std::string> Examples() {
  Bitmap arrived(5, SequenceNumber(33), 0);
  arrived.BitSet(SequenceNumber(34), 1);
  const FileDescription file{100000, 1408, "notes.txt"};
  const auto as = [](Kind kind, int number) {
    return Header{0xA1B2C3D4, kind, VORNNtpTime::FromWords(100, 1U << 31), SequenceNumber(number)};
  };
  return {Written(HeartbeatWrite, as(Kind::HEARTBEAT, 72),
                  Heartbeat{3, 40001, file, 0x0123456789ABCDEF}),
          Written(SampleWrite, as(Kind::SAMPLE, 2), "hello", 5),
          Written(WindowWrite, as(Kind::WINDOW, 33), WindowHead{0x11223344, 3, {}, {}, 30, 800},
                  arrived),
          Written(EndWrite, as(Kind::END, 72), ExitCode::OK)};
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
  for (const std::string& datagram : Examples()) {
    const bool isSample = datagram[11] == 2;  // any length of one is whole
    for (std::size_t length = 0; length <= datagram.size() + 1; ++length) {
      const bool isWhole = isSample ? length > HEADER_SIZE : length == datagram.size();
      const std::string text = (datagram + 'x').substr(0, length);
      EXPECT_EQ(Reading(text).Again(), isWhole ? text : "") << length;
    }
  }
}

// One word of an example is another one. The file has 72 samples of 1408 bytes.
TEST(DatagramTest, IsRefusedWithAWordThatCannotBeTrue) {
  using enum Kind;
  // clang-format off
  const struct { const char* what; Kind kind; std::size_t offset; std::uint32_t word; bool isGood; } rows[] = {
      {"other magic", HEARTBEAT, 0, 0x56464331, false},
      {"no session", HEARTBEAT, 4, 0, false},
      {"kind 0", END, 8, 0, false},
      {"kind 5", END, 8, 5, false},
      {"negative number", HEARTBEAT, 20, 0x80000000, false},
      {"a checksum before the last sample", HEARTBEAT, 24, 71, false},
      {"sample after the last", HEARTBEAT, 24, 73, false},
      {"port 0", HEARTBEAT, 32, 0, false},
      {"largest port", HEARTBEAT, 32, 65535, true},
      {"port above 16 bits", HEARTBEAT, 32, 65536, false},
      {"file above 1 TiB", HEARTBEAT, 36, 0x100, false},
      {"no checksum, but its bytes", HEARTBEAT, 44, 0, false},
      {"a checksum twice", HEARTBEAT, 44, 2, false},
      {"samples of 0 bytes", HEARTBEAT, 56, 0, false},
      {"samples too long", HEARTBEAT, 56, 1409, false},
      {"hidden name", HEARTBEAT, 64, 0x2E6F7465, false},
      {"number is not the bitmap's", WINDOW, 24, 32, false},
      {"failed without a reason", WINDOW, 36, 2, false},
      {"a reason without a failure", WINDOW, 40, 12, false},
      {"state 3", WINDOW, 36, 3, false},
      {"no room", WINDOW, 48, 0, false},
      {"last reason", END, 28, 18, true},
      {"reason after the last", END, 28, 19, false},
  };
  // clang-format on
  const std::vector<std::string> examples = Examples();
  for (const auto& row : rows) {
    std::string datagram = examples[static_cast<std::size_t>(row.kind) - 1];
    for (std::size_t i = 0; i < 4; ++i)
      datagram[row.offset + i] = static_cast<char>(row.word >> (24 - 8 * i));
    EXPECT_EQ(Reading(datagram).isGood, row.isGood) << row.what;
  }
  const Bitmap first(5, SequenceNumber(), 0), one(5, SequenceNumber(1), 0);
  const WindowHead failed{1, 1, TransferState::FAILED, ExitCode::DISK_FULL, 0, 1};
  const Reading failure(
      Written(WindowWrite, Header{1, WINDOW, {}, SequenceNumber(1)}, failed, one));
  EXPECT_TRUE(failure.isGood);
  EXPECT_EQ(failure.head.reason, ExitCode::DISK_FULL);
  const Heartbeat longest{1, 1, {1, 1, std::string(256, 'a')}, {}},
      large{1, 1, {LARGEST_FILE, 1408, "f"}, {}};
  EXPECT_TRUE(Reading(Written(HeartbeatWrite, Header{1, HEARTBEAT, {}, {}}, large)).isGood);
  EXPECT_FALSE(
      Reading(Written(WindowWrite, Header{1, WINDOW, {}, {}}, WindowHead(), first)).isGood);
  EXPECT_FALSE(Reading(Written(HeartbeatWrite, Header{1, HEARTBEAT, {}, {}}, longest)).isGood);
}

TEST(DatagramTest, NamesAreThoseOfPlainFiles) {
  using namespace std::string_literals;
  for (const std::string& name :
       {"a"s, "notes.txt"s, "with blank"s, "\xC3\xA4"s, std::string(255, 'a')})
    EXPECT_TRUE(FileNameIsSafe(name)) << name;
  for (const std::string& name : {""s, "."s, "../a"s, "/a"s, "a/b"s, ".hidden"s, "a\nb"s,
                                  "\x1B[2J"s, "\x7F"s, "a\0"s, std::string(256, 'a')})
    EXPECT_FALSE(FileNameIsSafe(name)) << name;
}

TEST(ProgressTest, FillsTheColumnsThatThereAre) {
  const ProgressView half{"notes.txt", 50000000, 100000000, 2e6}, slow{"n", 0, 1, 1e-9};
  const ProgressView umlauts{"\xC3\xA4\xC3\xA4\xC3\xA4", 0, 0, 0};
  // clang-format off
  const struct { const char* what; const ProgressView& view; int columns; const char* text; } rows[] = {
      {"all fits", half, 80, "notes.txt                [############             ]  50 %, 2.0 MB/s, 0:25 left"},
      {"no room for a bar", half, 60, "notes.txt                 50 %, 2.0 MB/s, 0:25 left"},
      {"room for a short name", half, 30, "no  50 %, 2.0 MB/s, 0:25 left"},
      {"no room for figures", half, 14, "notes.t  50 %"},
      {"room for nothing", half, 5, ""},
      {"no end in sight", slow, 40, "n                         0 %, 0.0 MB/s"},
      {"an empty file, cut between characters", umlauts, 9, "\xC3\xA4\xC3\xA4 100 %"},
  };
  // clang-format on
  for (const auto& row : rows)
    EXPECT_EQ(ProgressLine(row.view, row.columns), row.text) << row.what;
}

// Of 300 samples of 500 bytes, the last one with 7, only the second has arrived.
TEST(ReceiveWindowTest, WantsWhatIsMissingInItsProperLength) {
  ReceiveWindow window({299 * 500 + 7, 500, "f"});
  window.SampleStored(SequenceNumber(2));
  for (const int number : {0, 2, 257})
    EXPECT_FALSE(window.SampleIsWanted(SequenceNumber(number), 500)) << number;
  for (const int length : {499, 500, 501})
    EXPECT_EQ(window.SampleIsWanted(SequenceNumber(256), length), length == 500) << length;
  for (int number = 1; number <= 200; ++number)
    window.SampleStored(SequenceNumber(number));
  EXPECT_TRUE(window.SampleIsWanted(SequenceNumber(300), 7));
  EXPECT_FALSE(window.SampleIsWanted(SequenceNumber(300), 500));
}

std::uint64_t SumGet(const std::string& bytes) {
  Checksum sum;
  sum.Add(bytes.data(), bytes.size());
  return sum.Get();
}

TEST(ChecksumTest, IsTheSameOnAnyHostHoweverTheBytesAreCut) {
  std::string all(100, '\0');
  std::iota(all.begin(), all.end(), '\0');
  constexpr std::uint64_t WHOLE = 0x991C25AD850B0A22;
  EXPECT_EQ(SumGet("123456789"), 0x4F156E31962D0277);
  for (std::size_t cut = 0; cut <= all.size(); ++cut) {
    Checksum sum;
    sum.Add(all.data(), cut);
    sum.Add(&all[cut], all.size() - cut);
    EXPECT_EQ(sum.Get(), WHOLE) << cut;
  }
  for (std::size_t bit = 0; bit < 8 * all.size(); ++bit) {
    std::string damaged = all;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    EXPECT_NE(SumGet(damaged), WHOLE) << bit;
  }
  EXPECT_NE(SumGet(all + '\0'), WHOLE);
}

// How a file of 1000 samples ends in a folder of its own. Samples come backwards, 127 and 256 at a
// time: as many as may wait to be written, and then the farthest that the window takes.
TEST(IncomingFileTest, IsWrittenWholeOrRemovedWithItsReason) {
  constexpr int ALL = 1000;
  std::string text(ALL * 10 - 3, '\0');
  std::mt19937 random(1);
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
  const std::uint64_t sum = SumGet(text);
  const auto add = [&](IncomingFile& file, int number) {
    file.SampleAdd(SequenceNumber(number), &text[static_cast<std::size_t>(number - 1) * 10],
                   number == ALL ? 7 : 10, VORNNtpTime());
  };
  using enum TransferState;
  // clang-format off
  const struct { const char* what; std::uint64_t sum; int samples; bool isEnded; VORNNtpTime silence; TransferState state; ExitCode code; bool isOver; } rows[] = {
      {"whole", sum, ALL, false, {}, COMPLETE, ExitCode::OK, false},
      {"told", sum, ALL, false, {2, 1}, COMPLETE, ExitCode::OK, true},
      {"told and ended", sum, ALL, true, {}, COMPLETE, ExitCode::OK, true},
      {"damaged", sum + 1, ALL, false, {}, FAILED, ExitCode::CHECKSUM_WRONG, false},
      {"patient", sum, ALL - 1, false, {2, 0}, RECEIVING, ExitCode::OK, false},
      {"silent", sum, ALL - 1, false, {2, 1}, FAILED, ExitCode::SENDER_SILENT, true},
      {"ended too early", sum, ALL - 1, true, {}, FAILED, ExitCode::SENDER_ENDED, true},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    char path[] = "/tmp/filecast-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    const int folder = open(path, O_RDONLY | O_DIRECTORY);
    {
      IncomingFile file(1, {text.size(), 10, "f"}, 1, folder, "id", VORNNtpTime());
      int first = 1;
      for (int size = 127; first <= row.samples; size = 383 - size) {
        for (int number = std::min(first + size - 1, row.samples); number >= first; --number)
          add(file, number);
        first += size;
      }
      file.ChecksumNote(row.sum, VORNNtpTime());
      if (row.isEnded) {
        file.EndNote(ExitCode::OK, VORNNtpTime());
        add(file, ALL);
      }
      file.SilenceCheck(row.silence, {2, 0});
      EXPECT_EQ(file.StateGet(), row.state);
      EXPECT_EQ(file.FailureGet() ? file.FailureGet()->code : ExitCode::OK, row.code);
      EXPECT_EQ(file.IsOver(), row.isOver);
    }
    close(folder);
    std::ifstream stream(std::string(path) + "/f");
    const std::string written{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(written == text, row.state == COMPLETE);
    EXPECT_EQ(std::filesystem::remove_all(path), row.state == COMPLETE ? 2U : 1U);
  }
}

}  // namespace
