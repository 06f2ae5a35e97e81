#include "hosts/VORNEnvironment.h"

#include "hosts/HostListModel.h"
#include "hosts/VORNHostListProperties.h"
#include "platform/KelDebug.h"
#include "utils/VORNUtilsDiag.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const NAME = "VORN_PEER_HOSTS";

std::string TextRandom(std::mt19937& random, std::size_t size) {
  static const char BYTES[] = "abcdefgh:: \t\n\n#\r\0\xE9/.";
  std::string text(size, 'x');
  for (char& byte : text)
    byte = random() % 4 == 0 ? BYTES[random() % (sizeof BYTES - 1)] : byte;
  return text;
}

// A directory of its own, an unset variable, and everything that is printed.
struct HostList : testing::Test {
  char directory[32] = "/tmp/vorn-hosts-XXXXXX";
  std::string printed;

  void SetUp() override {
    ASSERT_NE(mkdtemp(directory), nullptr);
    ASSERT_EQ(chmod(directory, 0755) + chdir(directory) + unsetenv(NAME), 0);
    const auto sink = [](const char* text, void* to) { *static_cast<std::string*>(to) += text; };
    KelDebugSinkSet(sink, &printed);
  }
  void TearDown() override {
    KelDebugSinkSet(nullptr, nullptr);
    VornUtilsVerbositySet(0);
    std::remove(NAME);
    EXPECT_EQ(chdir("/") + rmdir(directory) + unsetenv(NAME), 0);
  }
  static void FileWrite(const std::string& text) { std::ofstream(NAME, std::ios::binary) << text; }
  // Reads the list over the text "old". Each line is printed from its level on.
  void Expect(const std::string& result, int useEnvironment, int useFile,
              const std::vector<std::pair<int, std::string>>& lines, int length = 4096) {
    for (int level = -1; level <= 2; ++level) {
      std::string expected;
      for (const auto& line : lines)
        expected += line.first <= level ? "VornEnvironmentGet: " + line.second + "\n" : "";
      VornUtilsVerbositySet(level);
      printed.clear();
      std::string buffer(static_cast<std::size_t>(length) + 1, '!');
      std::memcpy(buffer.data(), "old", 4);
      const char* list = VornEnvironmentGet(buffer.data(), length, VORN_ENVIRONMENT_PEER_HOSTS,
                                            useEnvironment, useFile);
      EXPECT_EQ(list == nullptr ? "(null)" : list, result) << level;
      EXPECT_EQ(buffer.back(), '!');
      EXPECT_EQ(printed, expected) << level;
    }
  }
};

}  // namespace

TEST_F(HostList, FilesAreFilteredAsAModelDoesAndCutAtTheLimit) {
  const std::pair<int, std::string> useFile{1, "using file VORN_PEER_HOSTS"};
  setenv(NAME, "variable", 1);
  FileWrite("# peers\n  hostA \t hostB\r\n10.1.0.0/ffff0000   # lab subnet\n::\n");
  Expect("hostA:hostB\r:10.1.0.0/ffff0000", 1, 1, {useFile});
  std::vector<std::string> texts{"", " \n#nothing", "a::b:", "x"};
  std::mt19937 random(2);
  for (std::size_t size = 0; size < 6000; size += 1 + random() % 97)
    texts.push_back(TextRandom(random, size));
  for (const std::size_t kept : {4094U, 4095U, 4096U, 4097U})
    for (const char* end : {"", "\n", ":y", " # end\n", "y y"})
      texts.push_back(std::string(kept, 'x') + end);
  for (const std::string& text : texts)
    for (const int length : {4096, 4097, 9000}) {
      FileWrite(text);
      HostListModel model(text, length == 4096 ? 4095 : 4096);
      model.text = model.text.empty() ? "old" : model.text;
      if (model.text.back() == ':')
        model.text.pop_back();
      Expect(model.text.substr(0, model.text.find('\0')), 1, 1,
             {useFile, {model.overflow ? 0 : 9, "file too long. max 4096"}}, length);
    }
}

TEST_F(HostList, FilterAgreesWithAModelForEveryByteAndBlockSize) {
  std::mt19937 random(3);
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte)
    everyByte += {'a', static_cast<char>(byte), static_cast<char>(byte), '\n'};
  for (int round = 0; round < 400; ++round) {
    const std::string input = round == 0 ? everyByte : TextRandom(random, random() % 300);
    const std::size_t limit = round % 2 == 0 ? 4096 : random() % 200;
    const char separator = round % 3 == 0 ? ',' : ':';
    const HostListModel model(input, limit, separator);
    const std::size_t anyBlock = 1 + random() % 100;
    for (const std::size_t block :
         {std::size_t{1}, std::size_t{62}, std::size_t{63}, std::size_t{64}, anyBlock}) {
      std::string output(limit + 1, '!');
      FilterStatus status{1, 0};
      int overflow = 0, count = 0;
      for (std::size_t at = 0; at < input.size() && overflow == 0; at += block)
        count +=
            FilterWhitespace(&status, &overflow, &output[static_cast<std::size_t>(count)],
                             static_cast<int>(limit) - count, &input[at],
                             static_cast<int>(std::min(block, input.size() - at)), separator, '#');
      EXPECT_EQ(output.substr(0, static_cast<std::size_t>(count)), model.text) << block;
      EXPECT_EQ(overflow != 0, model.overflow);
      EXPECT_EQ(output.back(), '!');
    }
  }
}

TEST_F(HostList, SourcesAreTriedInOrderAndEachStepIsTold) {
  const std::pair<int, std::string> noFile{1, "file VORN_PEER_HOSTS not found"},
      useFile{1, "using file VORN_PEER_HOSTS"},
      useVariable{1, "using environment variable VORN_PEER_HOSTS"};
  Expect("(null)", 1, 1, {noFile, {1, "environment variable VORN_PEER_HOSTS not found"}});
  Expect("(null)", 0, 1, {noFile});
  for (const std::string& value : {std::string("a::b: #c\n"), std::string(), std::string(4094, 'v'),
                                   std::string(4095, 'v'), std::string(4096, 'v')}) {
    setenv(NAME, value.c_str(), 1);
    Expect(value.substr(0, 4095), 1, 1,
           {noFile,
            useVariable,
            {value.size() > 4095 ? 0 : 9,
             "environment variable VORN_PEER_HOSTS longer than 4095 bytes"}});
  }
  setenv(NAME, "v", 1);
  FileWrite("f");
  Expect("f", 1, 1, {useFile});
  Expect("v", 1, 0, {noFile, useVariable});
  const uid_t user = geteuid();
  ASSERT_EQ(chmod(NAME, 0) + seteuid(user == 0 ? 65534 : user), 0);
  Expect("v", 1, 1, {noFile, useVariable});
  // A directory opens and cannot be read: the variable is not consulted.
  ASSERT_EQ(seteuid(user) + std::remove(NAME) + mkdir(NAME, 0700), 0);
  Expect("(null)", 1, 1,
         {useFile,
          {0, "error 1 reading file VORN_PEER_HOSTS"},
          {0, "error reading file VORN_PEER_HOSTS"}});
}

TEST_F(HostList, RequestsThatCannotBeMetWriteNothing) {
  setenv(NAME, "v", 1);
  setenv("HOST_TYPE_INVALID", "v", 1);
  VornUtilsVerbositySet(2);
  std::string buffer(4096, '!');
  char* const at = buffer.data();
  const std::tuple<char*, int, int, int> requests[] = {
      {nullptr, 4096, 4, 1}, {at, 4095, 4, 1},  {at, -1, 4, 1},  {at, 4096, 4, 0},
      {at, 4096, 0, 1},      {at, 4096, -1, 1}, {at, 4096, 5, 1}};
  for (const auto& [to, length, type, useEnvironment] : requests)
    EXPECT_EQ(VornEnvironmentGet(to, length, VORNEnvironmentType(type), useEnvironment, 0),
              nullptr);
  EXPECT_EQ(printed, "");
  FilterStatus status{0, 0};
  int overflow = 7;
  EXPECT_EQ(FilterWhitespace(nullptr, &overflow, at, 1, "a", 1, ':', '#') +
                FilterWhitespace(&status, nullptr, at, 1, "a", 1, ':', '#') +
                FilterWhitespace(&status, &overflow, nullptr, 1, "a", 1, ':', '#') +
                FilterWhitespace(&status, &overflow, at, 1, nullptr, 1, ':', '#') + overflow,
            7);
  EXPECT_EQ(FilterWhitespace(&status, &overflow, at, 1, "a", -1, ':', '#') + overflow, 0);
  EXPECT_EQ(FilterWhitespace(&status, &overflow, at, -1, " a", 2, ':', '#') + overflow, 1);
  EXPECT_EQ(buffer, std::string(4096, '!'));
  EXPECT_EQ(VornFileOpen(nullptr, "r"), nullptr);
  EXPECT_EQ(VornFileOpen("/dev/null", nullptr), nullptr);
  VORNHostListProperties properties{{7, 7, 7, 7}};
  VornHostListPropertiesDefaultGet(&properties);
  VornHostListPropertiesDefaultGet(nullptr);
  EXPECT_TRUE(std::ranges::equal(properties.words, std::vector<int>{1, 1, 0, 0}));
}

TEST(HostMaskGet, CutsTheEntryAtTheSlash) {
  const std::pair<std::string, unsigned int> cases[] = {{"host", ~0U},
                                                        {"10.1.2.0/ffffff00", 0xFFFFFF00},
                                                        {"h/zzzzzzzz", ~0U},
                                                        {"h/00000000", 0},
                                                        {"h/FfFf0000", 0xFFFF0000},
                                                        {"h/123456789", 0x12345678},
                                                        {"h/ff/ff", 0xFF},
                                                        {"/", ~0U},
                                                        {"", ~0U},
                                                        {"h/", ~0U},
                                                        {"/ffff0000", 0xFFFF0000},
                                                        {"h/255.255.0.0", 0x255}};
  for (const auto& [entry, mask] : cases) {
    std::string text = entry;
    EXPECT_EQ(VornHostMaskGet(text.data()), mask) << entry;
    EXPECT_EQ(text.substr(0, text.find('\0')), entry.substr(0, entry.find('/')));
  }
  EXPECT_EQ(VornHostMaskGet(nullptr), ~0U);
}
