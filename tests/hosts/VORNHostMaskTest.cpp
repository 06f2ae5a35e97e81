#include "hosts/VORNHostMask.h"

#include "net/VORNDGram.h"
#include "support/HashTable.h"
#include "support/Results.h"
#include "support/Scripted.h"

#include <algorithm>

namespace {

constexpr unsigned int LOOPBACK = 0x7F000001;
constexpr unsigned int OWN = 0x0A010707, OTHER_OWN = 0xC0A80101;
constexpr unsigned int HOST = 0xFFFFFFFF;

using Addresses = std::vector<unsigned int>;
using Entries = std::vector<VORNHostMask>;

void Fill(HTClass& table, Entries& entries) {
  for (std::size_t i = 0; i < entries.size(); ++i)
    ASSERT_EQ(Insert(table, std::to_string(i), &entries[i]), 1);
}

bool Contains(const VORNHostMask& e, unsigned int ip) { return ((ip ^ e.address) & e.mask) == 0; }

// The rule of admission as its readers know it.
bool IsAdmitted(const Entries& entries, unsigned int ip, bool loopbackRule) {
  const bool isOwn = ip == OWN || ip == OTHER_OWN || ip == LOOPBACK;
  bool listed[2] = {}, held[2] = {};  // among the subnets, among the hosts
  for (const VORNHostMask& entry : entries) {
    if (loopbackRule && isOwn && entry.address == LOOPBACK)
      return true;
    listed[entry.mask == HOST] = true;
    held[entry.mask == HOST] |= Contains(entry, ip);
  }
  return listed[0] == held[0] && listed[1] == held[1];
}

// What the subnets of the list choose; everything when it has none.
Addresses Chosen(Entries entries, Addresses from) {
  std::erase_if(entries, [](const auto& entry) { return entry.mask == 0 || entry.mask == HOST; });
  const auto isOutside = [&entries](unsigned int ip) {
    return std::ranges::none_of(entries, [ip](const auto& entry) { return Contains(entry, ip); });
  };
  if (!entries.empty())
    std::erase_if(from, isOutside);
  return from;
}

// The last record is beyond the table.
struct HostMask : Scripted {
  std::vector<VORNNICProperties> nics{{0x17, OWN}, {0x17, LOOPBACK}, {0x15, OTHER_OWN}, {0x15, 9}};
  HostMask() {
    VORN_NIC_COUNT = 3;
    VORN_NIC = nics.data();
  }
  ~HostMask() override {
    VORN_NIC_COUNT = 0;
    VORN_NIC = nullptr;
  }
};

}  // namespace

// Every subset of entries of each kind, against every kind of address.
TEST_F(HostMask, EveryListAdmitsChoosesAndPrunesByTheRulesInLockedWalks) {
  const Entries kinds{{0x0A010203, HOST},       {0x0A090909, HOST},     {0x0A01FFFF, 0xFFFF0000},
                      {0xC0A80000, 0xFFFF0000}, {0x12345678, 0},        {LOOPBACK, HOST},
                      {LOOPBACK, 0xFF000000},   {LOOPBACK, 0xFF0000FF}, {OWN, HOST}};
  Addresses asked{0x0A010203, 0x0A010204, 0x0A090909, 0xC0A80101, OWN, LOOPBACK, 0x7F000002, 0};
  for (unsigned int subset = 0; subset < 1U << kinds.size(); ++subset) {
    SCOPED_TRACE(subset);
    Entries entries;
    for (std::size_t i = 0; i < kinds.size(); ++i)
      if ((subset >> i & 1) != 0)
        entries.push_back(kinds[i]);
    HTClass table;
    Fill(table, entries);
    Script().calls.clear();
    for (const unsigned int ip : asked)
      for (const int skip : {0, 1})
        EXPECT_EQ(VornHostMaskMatch(&table, ip, skip), IsAdmitted(entries, ip, skip == 0)) << ip;

    std::rotate(asked.begin(), asked.begin() + 1, asked.end());
    Addresses output(asked.size(), 7), chosen = Chosen(entries, asked);
    EXPECT_EQ(VornSubnetMatch(&table, asked.data(), 8, output.data()), int(chosen.size()));
    chosen.resize(asked.size(), 7);
    EXPECT_EQ(output, chosen);
    const std::set<std::string> walks(Script().calls.begin(), Script().calls.end());
    EXPECT_EQ(walks, std::set<std::string>{"ForAllMatches null, lock 1"});

    std::rotate(nics.begin(), nics.begin() + 1, nics.end() - 1);
    nics[0].flags ^= NIC_UP;  // one that is down stays down
    const auto before = nics;
    EXPECT_EQ(VornSubnetMatch(&table, nullptr, 9, output.data()), 0);
    for (std::size_t i = 0; i < nics.size(); ++i) {
      const unsigned int ip = nics[i].address;
      const bool isKept = i == 3 || ip == LOOPBACK || !Chosen(entries, {ip}).empty();
      EXPECT_EQ(nics[i].flags, before[i].flags & (isKept ? ~0U : ~0x10U)) << i;
    }
    std::copy(before.begin(), before.end(), nics.begin());
  }
}

// What a derived class sees after a walk over hosts alone.
TEST_F(HostMask, HostsAndSubnetsHaveMarksOfTheirOwn) {
  struct : VORNHostMaskMatchChecker {
    using VORNHostMaskMatchChecker::VORNHostMaskMatchChecker;
    std::vector<int> Marks() const { return {_sawHost, _hostMatched, _sawSubnet, _subnetMatched}; }
  } checker(OWN, 1);
  Entries entries{{OWN, HOST}};
  HTClass table;
  Fill(table, entries);
  EXPECT_EQ(table.ForAllMatches(nullptr, &checker, HTNodeClass::LOCK), 1);
  EXPECT_EQ(checker.Marks(), (std::vector<int>{1, 1, 0, 0}));
}

TEST_F(HostMask, QuestionsThatCannotBeAskedAreRefused) {
  Entries entries{{0x0A000000, 0xFF000000}};
  HTClass table;
  Fill(table, entries);
  ASSERT_EQ(Insert(table, "without data", nullptr), 1);
  Addresses asked{OTHER_OWN, OWN};
  unsigned int* const at = asked.data();
  ResultsExpect(0, {{"no table", VornHostMaskMatch(nullptr, OWN, 0)},
                    {"no output", VornSubnetMatch(&table, at, 2, nullptr)},
                    {"choose, no table", VornSubnetMatch(nullptr, at, 2, at)},
                    {"from none", VornSubnetMatch(&table, at, 0, at)},
                    {"from fewer", VornSubnetMatch(&table, at, -1, at)},
                    {"prune, no table", VornSubnetMatch(nullptr, nullptr, 0, nullptr)}});
  EXPECT_EQ(VornSubnetMatch(&table, at, 2, at), 1);  // into the place of the addresses
  EXPECT_EQ(asked[0], OWN);
  VORNSubnetMatchChecker checker(OWN);
  EXPECT_EQ(table.ForAllMatches(nullptr, &checker, HTNodeClass::LOCK), 0);
  EXPECT_EQ(checker.SawSubnet(), 1);
  checker.ResetHostIp(OWN);
  EXPECT_EQ(checker.SawSubnet(), 0);
  EXPECT_EQ(VORNHostMaskMatchChecker(OWN, 0).LevelExit(nullptr, &table, 0), 1);
  VORN_NIC_COUNT = 0;
  EXPECT_EQ(VornSubnetMatch(&table, nullptr, 0, nullptr), 0);
  EXPECT_EQ(nics[2].flags, 0x15U);
  VORN_NIC_COUNT = 3;
  VORN_NIC = nullptr;
  EXPECT_EQ(VornSubnetMatch(&table, nullptr, 0, nullptr), 0);
}

TEST_F(HostMask, ListsNameOneHostByACommonAddressOrAsTheLocalHost) {
  Addresses lists[] = {{}, {LOOPBACK}, {1}, {2, 1}, {1, 2}, {LOOPBACK, 2}, {OWN}};
  for (Addresses& a : lists)
    for (Addresses& b : lists)
      for (const unsigned int local : {1U, OWN})
        for (const unsigned int loopback : {2U, LOOPBACK, OWN}) {
          const auto isCommon = [&, local, loopback](unsigned int ip) {
            const bool counts = ip != LOOPBACK || local == OWN || loopback == LOOPBACK;
            return counts && std::ranges::count(b, ip) > 0;
          };
          EXPECT_EQ(
              VornHostKeyMatch(int(a.size()), a.data(), int(b.size()), b.data(), local, loopback),
              std::ranges::any_of(a, isCommon))
              << testing::PrintToString(std::tie(a, b, local, loopback));
        }
  unsigned int list[] = {LOOPBACK, 2};
  ResultsExpect(0, {{"fewer a", VornHostKeyMatch(-1, list, 2, list, OWN, LOOPBACK)},
                    {"fewer b", VornHostKeyMatch(2, list, -1, list, OWN, LOOPBACK)},
                    {"null a", VornHostKeyMatch(2, nullptr, 2, list, OWN, LOOPBACK)},
                    {"null b", VornHostKeyMatch(2, list, 2, nullptr, OWN, LOOPBACK)}});
}
