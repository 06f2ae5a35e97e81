#include "LossyLink.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

// Whether any reader takes the bytes, as it is found by their header.
bool IsRead(std::string bytes) {
  VORNCDRStream stream = StreamOver(&bytes);
  Header header;
  Heartbeat heartbeat;
  Window window;
  Bitmap arrived(0, SequenceNumber(), 0);
  const char* data = nullptr;
  int length = 0;
  bool complete = false;
  if (!HeaderRead(&stream, &header))
    return false;
  switch (header.kind) {
  case Kind::HEARTBEAT:
    return HeartbeatRead(&stream, header, &heartbeat);
  case Kind::SAMPLE:
    return SampleRead(&stream, &data, &length) && data + length == bytes.data() + bytes.size();
  case Kind::WINDOW:
    return WindowRead(&stream, header, &window, &arrived);
  case Kind::END:
    return EndRead(&stream, &complete);
  }
  return false;
}

Header HeaderOf(Kind kind, int number) {
  return {0xA1B2C3D4, kind, VORNNtpTime::FromWords(100, 0x80000000), SequenceNumber(number)};
}

std::vector<std::string> Examples() {
  Bitmap arrived(5, SequenceNumber(33), 0);
  arrived.BitSet(SequenceNumber(34), 1);
  return {Written([](VORNCDRStream* out) {
            return HeartbeatWrite(out, HeaderOf(Kind::HEARTBEAT, 37),
                                  {3, 40001, {100000, 0x0123456789ABCDEF, 1408, "notes.txt"}});
          }),
          Written([](VORNCDRStream* out) {
            return SampleWrite(out, HeaderOf(Kind::SAMPLE, 2), "hello", 5);
          }),
          Written([&](VORNCDRStream* out) {
            return WindowWrite(out, HeaderOf(Kind::WINDOW, 33),
                               {0x11223344, 3, ReceiverState::RECEIVING}, arrived);
          }),
          Written([](VORNCDRStream* out) { return EndWrite(out, HeaderOf(Kind::END, 72), true); })};
}

// The page shows each as lines of four-byte words; what is behind two blanks explains them.
TEST(DatagramTest, HasTheBytesThatThePageShows) {
  std::ifstream page(FILECAST_PAGE);
  std::string line;
  std::string shown;
  while (std::getline(page, line))
    if (line.starts_with("0x "))
      shown += line.substr(3, line.find("  ", 3) - 3);
  std::string written;
  for (const std::string& datagram : Examples())
    for (const unsigned char byte : datagram)
      written += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  std::erase(shown, ' ');
  EXPECT_EQ(shown, written);
}

TEST(DatagramTest, IsReadWholeOrNotAtAll) {
  std::mt19937 random(1);
  for (const std::string& datagram : Examples()) {
    EXPECT_TRUE(IsRead(datagram));
    for (std::size_t length = 0; length < datagram.size(); ++length)  // any sample but an empty one
      EXPECT_EQ(IsRead(datagram.substr(0, length)), datagram[11] == 2 && length > 28) << length;
    EXPECT_EQ(IsRead(datagram + 'x'), datagram[11] == 2);
    for (int i = 0; i < 20000; ++i) {
      std::string garbled = datagram;
      for (auto n = random() % 4 + 1; n > 0; --n)
        garbled[random() % garbled.size()] = static_cast<char>(random() % 2 == 0 ? random() : 255);
      IsRead(garbled);  // the sanitizers look on
    }
  }
}

TEST(DatagramTest, NamesAreThoseOfPlainFiles) {
  for (const char* name : {"a", "notes.txt", "with blank", "\xC3\xA4"})
    EXPECT_TRUE(FileNameIsSafe(name)) << name;
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("../a"), std::string("/a"),
        std::string("a/b"), std::string(".hidden"), std::string("a\nb"), std::string("a\0", 2),
        std::string("\x1B[2J"), std::string(256, 'a')})
    EXPECT_FALSE(FileNameIsSafe(name)) << name;
}

}  // namespace
