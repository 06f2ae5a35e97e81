#include "hostlist/HostList.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace {

TEST(HostListTest, AFileSettlesItAndTheVariableOnlyStandsInForNone) {
  char folder[] = "/tmp/hostlist-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  std::filesystem::current_path(folder);
  const std::string name = "VORN_APP_HOSTS";
  const auto write = [&](std::size_t size, const char* rest) {
    std::ofstream(name) << std::string(size, 'h') << rest;
  };
  const struct {
    const char* what;
    std::function<void()> make;
    const char* variable;
    HostListSource source;
    HostListFault fault;
    std::size_t length;
  } rows[] = {
      {"neither", [] {}, nullptr, HostListSource::NOWHERE, HostListFault::NONE, 0},
      {"variable", [] {}, "a::b", HostListSource::IN_VARIABLE, HostListFault::NONE, 4},
      {"empty file", [&] { write(0, "# none"); }, "a", HostListSource::IN_FILE, HostListFault::NONE,
       0},
      {"longest file", [&] { write(4094, "\n"); }, "a", HostListSource::IN_FILE,
       HostListFault::NONE, 4094},
      {"cut file", [&] { write(4095, " h"); }, "a", HostListSource::IN_FILE,
       HostListFault::TOO_LONG, 4095},
      {"unreadable", [&] { std::filesystem::create_directory(name); }, "a", HostListSource::IN_FILE,
       HostListFault::CANNOT_READ, 0},
      {"a link to itself", [&] { std::filesystem::create_symlink(name, name); }, "a",
       HostListSource::IN_FILE, HostListFault::CANNOT_OPEN, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    row.make();
    row.variable != nullptr ? setenv(name.c_str(), row.variable, 1) : unsetenv(name.c_str());
    const HostListText list = HostListTextGet(VORN_ENVIRONMENT_APP_HOSTS);
    EXPECT_EQ(list.source, row.source);
    EXPECT_EQ(list.fault, row.fault);
    EXPECT_EQ(list.text.size(), row.length);
    EXPECT_EQ(list.error, row.fault == HostListFault::CANNOT_OPEN ? ELOOP : 0);
    std::filesystem::remove(name);
  }
  unsetenv(name.c_str());
  std::filesystem::current_path("/");
  std::filesystem::remove(folder);
}

TEST(HostListTest, EntriesAreHostsWithMasks) {
  const struct {
    const char* text;
    unsigned int address;
    unsigned int mask;
    HostEntryForm form;
    bool namesHost;
    bool isNew;
  } rows[] = {
      {"10.1.2.3", 0x0A010203, 0xFFFFFFFF, HostEntryForm::GOOD, true, true},
      {"10.1.2.3/ffff0000", 0x0A010203, 0xFFFF0000, HostEntryForm::GOOD, true, true},
      {"10.1.9.9/FFFF0000", 0x0A010909, 0xFFFF0000, HostEntryForm::GOOD, true, false},
      {"0.0.0.0/00000000", 0, 0, HostEntryForm::GOOD, true, true},
      {"0.0.0.0", 0, 0xFFFFFFFF, HostEntryForm::GOOD, false, false},
      {"10.1.2.0/24", 0x0A010200, 0x24, HostEntryForm::SHORT_MASK, true, true},
      {"10.1.2.3/fffffff+", 0x0A010203, 0x0FFFFFFF, HostEntryForm::SHORT_MASK, true, true},
      {"10.0.0.999", 0x0A0003E7, 0xFFFFFFFF, HostEntryForm::OTHER_NUMBER, true, true},
      {"10.0.0.1;x", 0x0A000001, 0xFFFFFFFF, HostEntryForm::OTHER_BYTE, true, true},
      {"/ffffff00", 0, 0xFFFFFF00, HostEntryForm::GOOD, false, false},
  };
  std::string text;
  for (const auto& row : rows)
    text += row.text + std::string("::");
  const std::vector<HostEntry> entries = HostEntriesGet(text);
  ASSERT_EQ(entries.size(), std::size(rows));
  HostTable table;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    SCOPED_TRACE(rows[i].text);
    EXPECT_EQ(entries[i].text, rows[i].text);
    EXPECT_EQ(entries[i].position, static_cast<int>(2 * i + 1));
    EXPECT_EQ(entries[i].address, rows[i].address);
    EXPECT_EQ(entries[i].mask, rows[i].mask);
    EXPECT_EQ(entries[i].form, rows[i].form);
    EXPECT_EQ(entries[i].namesHost, rows[i].namesHost);
    const bool isNew = entries[i].namesHost && table.EntryAdd(entries[i]);
    EXPECT_EQ(isNew, rows[i].isNew);
  }
}

}  // namespace
