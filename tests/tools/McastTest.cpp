#include "platform/KelDGram.h"
#include "support/Emulator.h"
#include "support/Namespace.h"
#include "tools/Diag.h"

namespace {

const std::string PAIR = "trap 'kill $P 2>/dev/null' EXIT; cd /; ip link set lo up; "
                         "F=/proc/sys/net/ipv4/conf/v0/rp_filter;"
                         "ip link add v0 up type veth peer name v1; ip addr add 10.77.1.1/24 dev "
                         "v0; ip link add w0 type veth; ";
// A second host, $FAR, which has the far end of the pair with address $A. The kernel may take a
// second to tell that the near one has a carrier.
const std::string FAR_HOST =
    "unshare -n sleep 9 >/dev/null 2>&1 & P=$!; FAR=nsenter\\ --net=/proc/$!/ns/net; "
    "N=0; while ip link show v1 >/dev/null 2>&1 && [ $((N += 1)) -lt 500 ]; do ip link set v1 "
    "netns $! 2>/dev/null; done; "
    "$FAR ip addr add $A/24 dev v1; $FAR ip link set v1 up; "
    "until ip link show v0 | grep -q 'state UP' || [ $((N += 1)) -gt 999 ]; do :; done; ";
const std::string FAR_SENDER =
    "A=10.99.0.9; " + FAR_HOST +
    "(until grep -q 4E56FFEF /proc/net/igmp || [ $((N += 1)) -gt 9999 ]; "
    "do :; done; $FAR " VORNDIAG " mcast send >/dev/null 2>&1)& "
    "ip link set w0 up; ip addr add 10.99.0.1/24 dev w0; ";
const std::string FAR_RECEIVER =
    "A=10.77.1.2; " + FAR_HOST +
    "$FAR " VORNDIAG " mcast recv --seconds 3 >/dev/null 2>&1 & "
    "P=\"$P $!\"; until $FAR cat /proc/net/igmp | grep -q 4E56FFEF || [ $((N += 1)) -gt 999 ]; "
    "do :; done; ";

}  // namespace

// On a host with one pair, to which something is done. Port 7479 is another program's, which does
// not share it. A datagram is dropped by the reverse-path filter, or comes in spite of it.
TEST(VorndiagMcast, EachCauseOfSilenceIsNamedAndNoOtherSilencePretended) {
  SKIP_UNDER_EMULATOR("IP_MULTICAST_IF");
  // clang-format off
  const struct { std::string setup; const char* arguments; int code; const char* says; } rows[] = {
      {"ip link set v1 up", "check", 0, R"("sent":10,"heard":10,"lost":0,"repeated":0,"ttl_low":1)"},
      {"ip link set v0 down", "check", 1, R"("kind":"interface_down","interface":"v0")"},
      {"ip link set v0 down", "recv --seconds 0.1", 1, R"("kind":"interface_down","interface":"v0")"},
      {"ip link set v1 down", "check --peer 10.77.1.2", 1, R"("kind":"no_carrier","interface":"v0")"},
      {"ip link set v0 multicast off", "check", 1, R"("kind":"no_multicast","interface":"v0")"},
      {"ip addr flush dev v0", "check", 1, R"("kind":"no_address","interface":"v0")"},
      {"ip link set v0 down", "send", 1, R"("kind":"no_route")"},
      {"ip link set v1 up", "check --peer 10.99.0.9", 1, R"("kind":"no_route")"},
      {"ip addr add 10.77.2.1/24 dev w0; ip link set w0 up; echo 1 >/proc/sys/net/ipv4/igmp_max_memberships",
       "check", 1, R"("kind":"membership_limit")"},
      {"ip link set v1 up", "check 239.1.2.3:7479", 1, R"("kind":"port_taken")"},
      {"ip link set v1 up", "recv 239.1.2.3:7479", 1, R"("kind":"port_taken")"},
      {"ip link set v1 up", "check --no-loopback", 1, R"("kind":"loopback_off")"},
      {"export VORN_PEER_HOSTS=10.99.0.0/ffff0000", "check --hosts peer", 1, R"("kind":"host_list","interface":"v0")"},
      {FAR_SENDER + "echo 0 >$F", "recv --seconds 1 --peer 10.99.0.9", 0, R"("sender":"10.99.0.9","receiver":"10.77.1.1","sent":10,"heard":10)"},
      {FAR_SENDER + "echo 2 >$F", "recv --seconds 1 --peer 10.99.0.9", 0, R"("causes":[{"kind":"no_carrier","interface":"w0")"},
      {FAR_SENDER + "echo 1 >$F", "recv --seconds 1 --peer 10.99.0.9", 1, R"("kind":"reverse_path","interface":"v0")"},
      {FAR_SENDER + "echo 2 >$F; ip link del w0", "recv --seconds 1 --peer 10.99.0.9", 1, R"("kind":"reverse_path","interface":"v0")"},
      {FAR_RECEIVER, "check --ttl 7 --count 5 --peer 10.77.1.2", 0, R"(","sent":5,"heard":5,"lost":0,"repeated":0,"ttl_low":7,"ttl_high":7,"expected":false)"},
  };
  // clang-format on
  for (const auto& row : rows)
    NamespaceRun([&] {
      KELDGram* holder = KelDGramNew();
      EXPECT_EQ(holder->bind(holder, 0, 7479), 7479);
      DiagExpect(std::string("mcast --json ") + row.arguments, row.code, row.says,
                 PAIR + row.setup + "\n");
      KelDGramDelete(holder);
    });
}

// Read by a program of another maker.
TEST(VorndiagJson, EveryCommandWritesOneObjectOnALine) {
  const std::string commands =
      "cd /; ip link set lo up; for c in nic queues 'queues --heal' 'queues --watch --looks 1' "
      "'queue 4711' limits 'decode bitmap 0000000000000005000000018000000f' 'decode sn 00' "
      "'hosts peer 10.1.2.3' 'mcast recv --seconds 0.1'; do " VORNDIAG
      " --json $c 2>/dev/null; done | python3 -c 'import json, sys\n"
      "for line in sys.stdin: print(json.loads(line)[\"command\"])'; exec ";
  NamespaceRun([&] {
    DiagExpect("--version", 0,
               "nic\nqueues\nqueues\nwatch\nqueue\nlimits\ndecode\ndecode\nhosts\nmcast\nvorndiag ",
               commands);
  });
}
