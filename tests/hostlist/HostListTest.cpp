#include "hostlist/HostList.h"

#include <gtest/gtest.h>

namespace {

using enum HostEntryForm;

// clang-format off
TEST(HostListTest, EntriesAreHostsWithMasks) {
  const struct { const char* text; unsigned int address, mask; HostEntryForm form; bool namesHost, isNew; } rows[] = {
      {"10.1.2.3", 0x0A010203, 0xFFFFFFFF, GOOD, true, true},
      {"10.1.2.3/ffff0000", 0x0A010203, 0xFFFF0000, GOOD, true, true},
      {"10.1.9.9/FFFF0000", 0x0A010909, 0xFFFF0000, GOOD, true, false},
      {"0.0.0.0/00000000", 0, 0, GOOD, true, true},
      {"0.0.0.0", 0, 0xFFFFFFFF, GOOD, false, false},
      {"10.1.2.0/24", 0x0A010200, 0x24, SHORT_MASK, true, true},
      {"10.1.2.3/fffffff+", 0x0A010203, 0x0FFFFFFF, SHORT_MASK, true, true},
      {"10.0.0.999", 0x0A0003E7, 0xFFFFFFFF, OTHER_NUMBER, true, true},
      {"10.0.0.1;x", 0x0A000001, 0xFFFFFFFF, OTHER_BYTE, true, true},
      {"/ffffff00", 0, 0xFFFFFF00, GOOD, false, false},
  };
  // clang-format on
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
