#include "hosts/VORNEnvironment.h"

#include "hosts/HostListModel.h"
#include "hosts/VORNHostListProperties.h"
#include "support/Messages.h"
#include "support/Results.h"

#include <cstdlib>
#include <cstring>
#include <random>

namespace {

const char* const NAME = "VORN_PEER_HOSTS";
const Message useFile{1, "using file VORN_PEER_HOSTS"};

std::string TextRandom(std::mt19937& random, std::size_t size) {
  static const char BYTES[] = "abcdefgh/.xxxx:: \t\n\n#\r";
  std::string text(size, ' ');
  for (char& byte : text)
    byte = random() % 64 == 0 ? static_cast<char>(random()) : BYTES[random() % (sizeof BYTES - 1)];
  return text;
}

// The file of the list, as the reads of it give it. An empty piece is a read that fails.
struct File {
  bool isThere = true;
  std::vector<std::string> pieces;
  std::size_t next = 0;
  int open = 0;

  void Set(const std::string& text, std::size_t pieceSize) {
    pieces.clear();
    for (std::size_t at = 0; at < text.size(); at += pieceSize)
      pieces.push_back(text.substr(at, pieceSize));
  }
  FILE* Open() {
    next = 0;
    ++open;
    return fopencookie(this, "r", {Read, nullptr, nullptr, Close});
  }
  static ssize_t Read(void* cookie, char* to, std::size_t size) {
    File& file = *static_cast<File*>(cookie);
    if (file.next == file.pieces.size())
      return 0;
    const std::string& piece = file.pieces[file.next++];
    return piece.empty() ? -1 : static_cast<ssize_t>(piece.copy(to, size));
  }
  static int Close(void* cookie) { return --static_cast<File*>(cookie)->open; }
};

struct HostList : Scripted {
  File file;

  HostList() { unsetenv(NAME); }
  ~HostList() override { unsetenv(NAME); }
  // Reads the list over the text "old".
  void Expect(const std::string& result, int variable, int fromFile, std::vector<Message> lines,
              int length = 4096) {
    for (Message& line : lines)
      line.text = "VornEnvironmentGet: " + line.text + '\n';
    MessagesExpect(lines, [&] {
      if (file.isThere)
        System().fopen = [this] { return file.Open(); };
      std::string buffer(static_cast<std::size_t>(length) + 1, '!');
      std::memcpy(buffer.data(), "old", 4);
      const char* list = VornEnvironmentGet(buffer.data(), length, VORN_ENVIRONMENT_PEER_HOSTS,
                                            variable, fromFile);
      EXPECT_EQ(list == nullptr ? "(null)" : list, result);
      EXPECT_EQ(buffer.back(), '!');
      EXPECT_EQ(CallsDrain(), fromFile != 0 ? "fopen VORN_PEER_HOSTS r" : "");
      EXPECT_EQ(file.open, 0);
    });
  }
};

}  // namespace

TEST_F(HostList, TextsAreFilteredAsAModelDoesAndCutAtTheLimit) {
  setenv(NAME, "variable", 1);
  file.pieces = {"# peers\n  hostA \t hostB\r\n10.1.0.0/ffff0000   # lab subnet\n::\n"};
  Expect("hostA:hostB\r:10.1.0.0/ffff0000", 1, 1, {useFile});
  std::vector<std::string> texts{"", "x", " \n#nothing", "a::b:"};
  std::mt19937 random(2);
  for (std::size_t size = 1; size < 9000; size += 1 + random() % 97)
    texts.push_back(TextRandom(random, size));
  for (const std::size_t kept : {4094U, 4095U, 4096U, 4097U})
    for (const char* end : {"", "\n", ":y", " # end\n", "y y"})
      texts.push_back(std::string(kept, 'x') + end);
  for (const std::string& text : texts)
    for (const int length : {4096, 4097, 9000}) {
      const std::size_t limit = random() % 4097, block = 1 + random() % 100;
      const char separator = ":,"[random() % 2];
      SCOPED_TRACE(testing::PrintToString(std::tie(text, length, limit, block, separator)));
      EXPECT_EQ(FilterDifference(text, limit, separator, {block}), "");
      file.Set(text, 1 + random() % 200);
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
  const Message noFile{1, "file VORN_PEER_HOSTS not found"}, useVariable{1, "using " + variable};
  file.isThere = false;
  Expect("(null)", 1, 1, {noFile, {1, variable + " not found"}});
  Expect("(null)", 0, 1, {noFile});
  setenv(NAME, (most + "v").c_str(), 1);
  Expect(most, 1, 1, {noFile, useVariable, {0, variable + " longer than 4095 bytes"}});
  for (const std::string& value : {most, std::string(), std::string("a::b: #c\n")}) {
    setenv(NAME, value.c_str(), 1);
    Expect(value, 1, 1, {noFile, useVariable});
  }
  file.isThere = true;
  Expect("a::b: #c\n", 1, 0, {noFile, useVariable});
}

TEST_F(HostList, FileThatCannotBeReadToItsEndGivesNoListAndTheVariableIsNotAsked) {
  const Message stopped{0, "error 1 reading file VORN_PEER_HOSTS"};
  const Message failed{0, "error reading file VORN_PEER_HOSTS"};
  setenv(NAME, "variable", 1);
  const std::string block(63, 'x'), more(9, 'y');
  file.pieces = {block + more, "", ""};
  Expect("(null)", 1, 1, {useFile, stopped, failed});
  file.pieces = {block, "", more};
  Expect("(null)", 1, 1, {useFile, stopped, failed});
  file.pieces = {block + more, "", more};  // the rest of the block can be used, and is read on
  Expect("(null)", 1, 1, {useFile, failed});
}

TEST_F(HostList, EachTypeHasItsFileAndVariable) {
  const auto expect = [](VORNEnvironmentType type, const char* name) {
    char buffer[4096];
    setenv(name, name, 1);
    EXPECT_STREQ(VornEnvironmentGet(buffer, 4096, type, 1, 1), name);
    EXPECT_EQ(CallsDrain(), std::string("fopen ") + name + " r");
    unsetenv(name);
  };
  expect(VORN_ENVIRONMENT_MANAGER_HOSTS, "VORN_MANAGER_HOSTS");
  expect(VORN_ENVIRONMENT_APP_HOSTS, "VORN_APP_HOSTS");
  expect(VORN_ENVIRONMENT_MANAGEE_HOSTS, "VORN_MANAGEE_HOSTS");
  expect(VORN_ENVIRONMENT_PEER_HOSTS, "VORN_PEER_HOSTS");
}

TEST_F(HostList, RequestsThatCannotBeMetWriteNothing) {
  setenv(NAME, "v", 1);
  setenv("HOST_TYPE_INVALID", "v", 1);
  VornUtilsVerbositySet(2);
  std::string buffer(4096, '!');
  const auto get = [](char* to, int length, int type, int variable) {
    return VornEnvironmentGet(to, length, VORNEnvironmentType(type), variable, 0) != nullptr;
  };
  ResultsExpect(0, {{"no buffer", get(nullptr, 4096, 4, 1)},
                    {"short buffer", get(buffer.data(), 4095, 4, 1)},
                    {"negative length", get(buffer.data(), -1, 4, 1)},
                    {"no source", get(buffer.data(), 4096, 4, 0)},
                    {"the type of no list", get(buffer.data(), 4096, 0, 1)},
                    {"type too low", get(buffer.data(), 4096, -1, 1)},
                    {"type too high", get(buffer.data(), 4096, 5, 1)},
                    {"no file", VornFileOpen(nullptr, "r") != nullptr},
                    {"no mode", VornFileOpen(NAME, nullptr) != nullptr}});
  EXPECT_EQ(Script().printed, "");
  EXPECT_EQ(buffer, std::string(4096, '!'));
  VORNHostListProperties properties{{7, 7, 7, 7}};
  VornHostListPropertiesDefaultGet(nullptr);
  VornHostListPropertiesDefaultGet(&properties);
  EXPECT_TRUE(std::ranges::equal(properties.words, std::vector<int>{1, 1, 0, 0}));
}

TEST(FilterWhitespace, ClearsTheFlagFirstAndRefusesOnlyWhatItWouldUse) {
  FilterStatus status{0, 0};
  char output = '!';
  const auto expect = [&](const char* what, const char* input, int length, int limit, int overflow,
                          FilterStatus* to, char* text) {
    int flag = 7;
    EXPECT_EQ(FilterWhitespace(to, &flag, text, limit, input, length, ':', '#'), 0) << what;
    EXPECT_EQ(flag, overflow) << what;
    EXPECT_EQ(status.lastWasSeparator, 0) << what;
    EXPECT_EQ(output, '!') << what;
  };
  expect("no status", "a", 1, 1, 0, nullptr, &output);
  expect("no output", "a", 1, 1, 0, &status, nullptr);
  expect("no input", nullptr, 1, 1, 0, &status, &output);
  expect("no output, none wanted", "a", 1, 0, 1, &status, nullptr);
  expect("negative length", "a", -1, 1, 0, &status, &output);
  expect("negative limit", " a", 2, -1, 1, &status, &output);
  EXPECT_EQ(FilterWhitespace(&status, nullptr, nullptr, 0, "a", 1, ':', '#'), 0);
}

// Blanks fill no buffer: only the bound on what is read ends a long file of them.
TEST_F(HostList, FilesAreReadUpTo16MiBAndOnlyALongerOneIsToldOf) {
  for (const char* end : {"xy", "xyz"}) {
    file.Set(std::string((1 << 24) - 2, ' ') + end, 4096);
    Expect("xy", 0, 1, {useFile, {end[2] != '\0' ? 0 : 9, "file too long. max 4096"}});
  }
}

TEST(HostMaskGet, CutsTheEntryAtTheSlash) {
  const auto expect = [](std::string entry, unsigned int mask, const char* left) {
    EXPECT_EQ(VornHostMaskGet(entry.data()), mask) << entry;
    EXPECT_STREQ(entry.c_str(), left);
  };
  expect("host", ~0U, "host");
  expect("h/", ~0U, "h");
  expect("h/zzzzzzzz", ~0U, "h");
  expect("h/00000000", 0, "h");
  expect("h/123456789", 0x12345678, "h");
  expect("h/ff/ff", 0xFF, "h");
  expect("/FfFf0000", 0xFFFF0000, "");
  EXPECT_EQ(VornHostMaskGet(nullptr), ~0U);
}
