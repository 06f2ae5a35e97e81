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

using Line = std::pair<int, std::string>;  // printed from that level on
const Line useFile{1, "using file VORN_PEER_HOSTS"};

std::string TextRandom(std::mt19937& random, std::size_t size) {
  static const char BYTES[] = "abcdefgh/.xxxx:: \t\n\n#\r";
  std::string text(size, ' ');
  for (char& byte : text)
    byte = random() % 64 == 0 ? static_cast<char>(random()) : BYTES[random() % (sizeof BYTES - 1)];
  return text;
}

// Filters `input` in blocks of one size. Nothing is written behind the limit.
void FilterExpect(const std::string& input, int limit, std::size_t block, char separator) {
  const HostListModel model(input, static_cast<std::size_t>(limit), separator);
  std::string output(model.text.size() + 1, '!');
  FilterStatus status{1, 0};
  int overflow = 0, count = 0;
  for (std::size_t at = 0; at < input.size() && overflow == 0; at += block) {
    const std::string part = input.substr(at, block);
    count += FilterWhitespace(&status, &overflow, output.data() + count, limit - count, part.data(),
                              static_cast<int>(part.size()), separator, '#');
  }
  EXPECT_EQ(output, model.text + '!') << block;
  EXPECT_EQ(overflow != 0, model.overflow);
}

// A directory of its own, an unset variable, and everything that is printed.
struct HostList : testing::Test {
  char directory[32] = "/tmp/vorn-hosts-XXXXXX";
  std::string printed;

  void SetUp() override {
    ASSERT_NE(mkdtemp(directory), nullptr);
    ASSERT_EQ(chdir(directory) + unsetenv(NAME), 0);
    const auto sink = [](const char* text, void* to) { *static_cast<std::string*>(to) += text; };
    KelDebugSinkSet(sink, &printed);
  }
  void TearDown() override {
    KelDebugSinkSet(nullptr, nullptr);
    VornUtilsVerbositySet(0);
    std::remove(NAME);
    EXPECT_EQ(chdir("/") + rmdir(directory) + unsetenv(NAME), 0);
  }
  // Reads the list over the text "old".
  void Expect(const std::string& result, int variable, int file, const std::vector<Line>& lines,
              int length = 4096) {
    for (int level = -1; level <= 2; ++level) {
      std::string expected;
      for (const auto& [from, line] : lines)
        expected += from <= level ? "VornEnvironmentGet: " + line + "\n" : "";
      VornUtilsVerbositySet(level);
      printed.clear();
      std::string buffer(static_cast<std::size_t>(length) + 1, '!');
      std::memcpy(buffer.data(), "old", 4);
      const char* list =
          VornEnvironmentGet(buffer.data(), length, VORN_ENVIRONMENT_PEER_HOSTS, variable, file);
      EXPECT_EQ(list == nullptr ? "(null)" : list, result) << level;
      EXPECT_EQ(buffer.back(), '!');
      EXPECT_EQ(printed, expected) << level;
    }
  }
};

}  // namespace

TEST_F(HostList, TextsAreFilteredAsAModelDoesAndCutAtTheLimit) {
  setenv(NAME, "variable", 1);
  std::ofstream(NAME) << "# peers\n  hostA \t hostB\r\n10.1.0.0/ffff0000   # lab subnet\n::\n";
  Expect("hostA:hostB\r:10.1.0.0/ffff0000", 1, 1, {useFile});
  std::vector<std::string> texts{"", " \n#nothing", "a::b:"};
  std::mt19937 random(2);
  const auto pick = [&](unsigned below) { return static_cast<int>(random() % below); };
  for (std::size_t size = 1; size < 9000; size += 1 + random() % 97)
    texts.push_back(TextRandom(random, size));
  for (const std::size_t kept : {4094U, 4095U, 4096U, 4097U})
    for (const char* end : {"", "\n", ":y", " # end\n", "y y"})
      texts.push_back(std::string(kept, 'x') + end);
  for (const std::string& text : texts)
    for (const int length : {4096, 4097, 9000}) {
      FilterExpect(text, pick(4097), 1 + random() % 100, ":,"[pick(2)]);
      std::ofstream(NAME) << text;
      HostListModel model(text, length == 4096 ? 4095 : 4096);
      model.text = model.text.empty() ? "old" : model.text;
      if (model.text.back() == ':')
        model.text.pop_back();
      Expect(model.text.substr(0, model.text.find('\0')), 1, 1,
             {useFile, {model.overflow ? 0 : 9, "file too long. max 4096"}}, length);
    }
}

TEST_F(HostList, SourcesAreTriedInOrderAndEachStepIsTold) {
  const std::string variable = "environment variable VORN_PEER_HOSTS", most(4095, 'v');
  const Line noFile{1, "file VORN_PEER_HOSTS not found"}, useVariable{1, "using " + variable};
  Expect("(null)", 1, 1, {noFile, {1, variable + " not found"}});
  Expect("(null)", 0, 1, {noFile});
  setenv(NAME, (most + "v").c_str(), 1);
  Expect(most, 1, 1, {noFile, useVariable, {0, variable + " longer than 4095 bytes"}});
  for (const std::string& value : {most, std::string(), std::string("a::b: #c\n")}) {
    setenv(NAME, value.c_str(), 1);
    Expect(value, 1, 1, {noFile, useVariable});
  }
  std::ofstream(NAME) << "f";
  Expect("a::b: #c\n", 1, 0, {noFile, useVariable});
  // A file that cannot be opened, here a link to itself, is as good as none.
  ASSERT_EQ(std::remove(NAME) + symlink(NAME, NAME), 0);
  Expect("a::b: #c\n", 1, 1, {noFile, useVariable});
  // A directory opens and cannot be read: the variable is not consulted.
  ASSERT_EQ(std::remove(NAME) + mkdir(NAME, 0700), 0);
  const Line error{0, "error 1 reading file VORN_PEER_HOSTS"};
  Expect("(null)", 1, 1, {useFile, error, {0, "error reading file VORN_PEER_HOSTS"}});
}

TEST_F(HostList, RequestsThatCannotBeMetWriteNothing) {
  ASSERT_EQ(setenv(NAME, "v", 1) + setenv("HOST_TYPE_INVALID", "v", 1), 0);
  VornUtilsVerbositySet(2);
  std::string buffer(4096, '!');
  char* const at = buffer.data();
  const std::tuple<char*, int, int, int> requests[] = {
      {nullptr, 4096, 4, 1}, {at, 4095, 4, 1},  {at, -1, 4, 1},  {at, 4096, 4, 0},
      {at, 4096, 0, 1},      {at, 4096, -1, 1}, {at, 4096, 5, 1}};
  for (const auto& [to, length, type, variable] : requests)
    EXPECT_EQ(VornEnvironmentGet(to, length, VORNEnvironmentType(type), variable, 0), nullptr);
  EXPECT_EQ(printed + buffer, std::string(4096, '!'));
  VORNHostListProperties properties{{7, 7, 7, 7}};
  VornHostListPropertiesDefaultGet(&properties);
  EXPECT_TRUE(std::ranges::equal(properties.words, std::vector<int>{1, 1, 0, 0}));
}

TEST(FilterWhitespace, ClearsTheFlagFirstAndRefusesOnlyWhatItWouldUse) {
  struct Row {
    const char* what;
    const char* input;
    int length, limit, written, overflow;
    bool hasStatus = true, hasOutput = true;
  };
  const Row rows[] = {
      {"no status", "a", 1, 1, 0, 0, false},
      {"no output", "a", 1, 1, 0, 0, true, false},
      {"no input", nullptr, 1, 1, 0, 0},
      {"no input, none needed", nullptr, 0, 1, 0, 0},
      {"no output, none wanted", "a", 1, 0, 0, 1, true, false},
      {"no output, nothing to write", " ", 1, 0, 0, 0, true, false},
      {"negative length", "a", -1, 1, 0, 0},
      {"negative limit", " a", 2, -1, 0, 1},
      {"nothing at all", nullptr, 0, 0, 0, 0, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    FilterStatus status{0, 0};
    int overflow = 7;
    char output = '!';
    EXPECT_EQ(FilterWhitespace(row.hasStatus ? &status : nullptr, &overflow,
                               row.hasOutput ? &output : nullptr, row.limit, row.input, row.length,
                               ':', '#'),
              row.written);
    EXPECT_EQ(overflow, row.overflow);
    EXPECT_EQ(status.lastWasSeparator, 0);
    EXPECT_EQ(output, '!');
  }
  FilterStatus status{0, 0};
  EXPECT_EQ(FilterWhitespace(&status, nullptr, nullptr, 0, "a", 1, ':', '#'), 0);
}

// Blanks fill no buffer: only the bound on what is read ends a long file of them.
TEST_F(HostList, FilesAreReadUpTo16MiBAndOnlyALongerOneIsToldOf) {
  for (const bool isLonger : {false, true}) {
    std::ofstream(NAME) << std::string((1 << 24) - 2, ' ') << (isLonger ? "xyz" : "xy");
    Expect("xy", 0, 1, {useFile, {isLonger ? 0 : 9, "file too long. max 4096"}});
  }
}

TEST(HostMaskGet, CutsTheEntryAtTheSlash) {
  const std::pair<std::string, unsigned int> cases[] = {
      {"", ~0U},           {"host", ~0U},     {"10.1.2.0/ffffff00", 0xFFFFFF00},
      {"h/zzzzzzzz", ~0U}, {"h/", ~0U},       {"h/123456789", 0x12345678},
      {"h/00000000", 0},   {"h/ff/ff", 0xFF}, {"/FfFf0000", 0xFFFF0000}};
  for (const auto& [entry, mask] : cases) {
    std::string text = entry;
    EXPECT_EQ(VornHostMaskGet(text.data()), mask) << entry;
    EXPECT_EQ(text.substr(0, text.find('\0')), entry.substr(0, entry.find('/')));
  }
  EXPECT_EQ(VornHostMaskGet(nullptr), ~0U);
}
