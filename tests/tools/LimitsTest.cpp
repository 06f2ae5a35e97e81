#include "vorndiag/Limits.h"
#include "tools/Diag.h"

#include <cstdlib>

namespace {

using LimitsOfAHost = IpcHost;

Limit LimitFind(const std::string& name) {
  for (const Limit& limit : LimitsGet(LimitsLookGet()))
    if (limit.name == name)
      return limit;
  return {};
}

}  // namespace

// The host is filled to a limit of the kernel; what raises it makes room for one queue more.
TEST_F(LimitsOfAHost, ReachedLimitRefusesAQueueAndItsCommandMakesRoom) {
  // clang-format off
  const struct { const char *name, *reached; } rows[] = {
      {"segments", "kernel.shmmni=2"},
      {"segment-pages", "kernel.shmall=2"},
      {"sets", "kernel.sem='32000 1024000000 500 5'"},
      {"semaphores", "kernel.sem='32000 5 500 32000'"},
      {"semmsl", "kernel.sem='0 1024000000 500 32000'"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(HostFresh());
    Queue first(1, 7, 16), second(1, 8, 16);
    EXPECT_FALSE(LimitFind(row.name).isTrouble);
    if (std::system((std::string("sysctl -qw ") + row.reached).c_str()) != 0)
      GTEST_SKIP() << "limits of the kernel cannot be set here";
    EXPECT_FALSE(Queue(1, 9, 16).IsValid());
    DiagExpect("limits", 1, "WRONG: reached");
    const std::string raise = LimitFind(row.name).raise;
    EXPECT_EQ(std::system((raise + " >/dev/null").c_str()), 0) << raise;
    EXPECT_FALSE(LimitFind(row.name).isTrouble);
    EXPECT_TRUE(Queue(1, 9, 16).IsValid()) << raise;
  }
}

TEST_F(LimitsOfAHost, NumbersAreThoseOfTheKernel) {
  Queue first(1, 7, 16), second(1, 8, 5000);
  // clang-format off
  const struct { const char* name; LimitsLook::Number Limit::* number; const char* command; } rows[] = {
      {"segments", &Limit::value, "cat /proc/sys/kernel/shmmni"},
      {"segments", &Limit::used, "ipcs -m | grep -c ^0x"},
      {"segment-bytes", &Limit::used, "ipcs -m | tr -s ' ' | cut -d' ' -f5 | sort -n | tail -1"},
      {"segment-pages", &Limit::used, "ipcs -um | sed -n 's/pages allocated //p'"},
      {"sets", &Limit::value, "cut -f4 /proc/sys/kernel/sem"},
      {"sets", &Limit::used, "ipcs -s | grep -c ^0x"},
      {"semaphores", &Limit::used, "ipcs -us | sed -n 's/allocated semaphores = //p'"},
      {"receive-buffer", &Limit::value, "cat /proc/sys/net/core/rmem_max"},
      {"send-buffer", &Limit::value, "cat /proc/sys/net/core/wmem_max"},
      {"memberships", &Limit::value, "cat /proc/sys/net/ipv4/igmp_max_memberships"},
  };
  // clang-format on
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name + std::string(": ") + row.command);
    Program look(row.command, "");
    look.Expect(0);
    EXPECT_EQ(std::to_string((LimitFind(row.name).*row.number).value_or(-1)) + "\n", look.Text());
  }
}

// In a folder with the session manager's: $E is /etc's and $U that of /usr.
TEST(Limits, LastWordOfTheSessionManagersFilesCounts) {
  // clang-format off
  const struct { const char* setup; bool removes; } rows[] = {
      {":", true},
      {"echo ' RemoveIPC = off' >$E", false},
      {"echo RemoveIPC=no >$E; echo RemoveIPC=Yes >$U.d/1.conf", true},
      {"echo RemoveIPC=no >$E.d/1.conf; echo RemoveIPC=yes | tee $E $U.d/1.conf >$U", false},
      {"printf 'RemoveIPC=no\\nRemoveIPC=\\n' >$E", true},
  };
  // clang-format on
  char folder[] = "/tmp/vorn-limits-XXXXXX";
  const std::string root = mkdtemp(folder);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.setup);
    const std::string make =
        "cd " + root +
        "; rm -rf *; mkdir -p run/systemd/seats; "
        "E=etc/systemd/logind.conf; U=usr/lib/systemd/logind.conf; mkdir -p $E.d $U.d; ";
    EXPECT_EQ(std::system((make + row.setup).c_str()), 0);
    EXPECT_EQ(LimitsLookGet(root).removesIpc, row.removes);
  }
  EXPECT_EQ(std::system(("rm -r " + root).c_str()), 0);
}
