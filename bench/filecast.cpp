// One file to 1, 3 and 8 receivers that lose a share of what they hear: by filecast, by a bare loop
// that repairs nothing, and, where nothing is lost, by a TCP copy to each. Sender and receivers are
// in two networks that this process makes, joined by a veth pair; the files are in memory.
//
// The pair carries what the processors can move, and TCP in pieces of 64 KiB. So one case is on a
// line of a certain rate, as real ones are: only there does it show that a file is carried once.

#include "targets.h"

#include "floors.h"
#include "support/Address.h"
#include "support/Namespaces.h"
#include "support/Timed.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#ifndef BENCH_FILECAST
#define BENCH_FILECAST ""
#endif

namespace {

constexpr int MOST_RECEIVERS = 8;
constexpr int BARE_PORT = 7412, TCP_PORT = 7413;
constexpr unsigned int GROUP = 0xEFFF4D02, NEAR = 0x0A4D0001;  // 239.255.77.2, 10.77.0.1
constexpr std::size_t TCP_CHUNK = 65536;
constexpr int LINE_MEGABITS = 400;
constexpr std::size_t LARGEST_FILE = 192'000'000;

struct Site {
  int far;  // the receivers' network
  std::string folder;
  std::string file;  // its bytes; the same are in the folder, under the name "file"
};
using SitePointer = std::shared_ptr<Site>;

void Check(bool isGood, const char* what) {
  if (!isGood)
    SystemFail(what);
}

void FarEnter(const Site& site) { Check(setns(site.far, CLONE_NEWNET) == 0, "setns"); }

int OutputOpen(const Site& site, int receiver) {
  const std::string path = site.folder + "/copy" + std::to_string(receiver);
  const int output = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  Check(output >= 0, "open");
  return output;
}

double MegabytesPerSecond(double bytes, double seconds) { return bytes / seconds * 1e-6; }

// A receiver's socket: bound to the group's port, with a buffer as filecast asks for.
int GroupJoin(int receiver) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  const int one = 1, room = 1 << 20;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const sockaddr_in here = Address(0, BARE_PORT);
  const ip_mreq membership{{htonl(GROUP)}, {htonl(NEAR + 1 + static_cast<unsigned int>(receiver))}};
  Check(bind(descriptor, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0, "bind");
  Check(setsockopt(descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0,
        "IP_ADD_MEMBERSHIP");
  return descriptor;
}

// Goodput is what arrives: of the bare loop's bytes, those that were not lost.
double BareRun(const Site& site, int receivers, unsigned int percent) {
  const long size = static_cast<long>(site.file.size());
  Shared<floors::Flow> flow;
  Gate gate;
  Children children;
  for (int i = 0; i < receivers; ++i)
    children.Start([&, i] {
      FarEnter(site);
      const int descriptor = GroupJoin(i);
      const int output = OutputOpen(site, i);
      gate.Pass();
      floors::SamplesReceive(descriptor, output, size, percent, &flow->taken[i], &flow->written[i]);
    });
  const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  const in_addr nic{htonl(NEAR)};
  Check(setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_IF, &nic, sizeof nic) == 0, "interface");
  gate.Open(receivers);
  const double start = SecondsNow();
  floors::SamplesSend(descriptor, Address(GROUP, BARE_PORT), site.file.data(), size, receivers,
                      *flow.operator->());
  children.JoinAll();
  const double seconds = SecondsNow() - start;
  close(descriptor);
  double bytes = 0;
  for (int i = 0; i < receivers; ++i)
    bytes += static_cast<double>(flow->written[i].load());
  return MegabytesPerSecond(bytes / receivers, seconds);
}

void TcpReceive(const Site& site, Gate& gate, int receiver) {
  FarEnter(site);
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int one = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  const sockaddr_in here = Address(NEAR + 1 + static_cast<unsigned int>(receiver), TCP_PORT);
  Check(bind(listener, reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0, "bind");
  Check(listen(listener, 1) == 0, "listen");
  const int output = OutputOpen(site, receiver);
  gate.Pass();
  const int connection = accept(listener, nullptr, nullptr);
  Check(connection >= 0, "accept");
  std::vector<char> chunk(TCP_CHUNK);
  for (std::size_t taken = 0; taken < site.file.size();) {
    const auto count = recv(connection, chunk.data(), chunk.size(), 0);
    Check(count > 0 && write(output, chunk.data(), static_cast<std::size_t>(count)) == count,
          "copy");
    taken += static_cast<std::size_t>(count);
  }
}

// One process serves all, a chunk to each in turn.
double TcpRun(const Site& site, int receivers) {
  Gate gate;
  Children children;
  for (int i = 0; i < receivers; ++i)
    children.Start([&, i] { TcpReceive(site, gate, i); });
  gate.Open(receivers);
  const double start = SecondsNow();
  std::vector<int> connections;
  connections.reserve(MOST_RECEIVERS);
  for (int i = 0; i < receivers; ++i) {
    connections.push_back(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in there = Address(NEAR + 1 + static_cast<unsigned int>(i), TCP_PORT);
    Check(connect(connections.back(), reinterpret_cast<const sockaddr*>(&there), sizeof there) == 0,
          "connect");
  }
  for (std::size_t sent = 0; sent < site.file.size(); sent += TCP_CHUNK) {
    const std::size_t count = std::min(TCP_CHUNK, site.file.size() - sent);
    for (const int connection : connections)
      Check(send(connection, site.file.data() + sent, count, 0) == static_cast<ssize_t>(count),
            "send");
  }
  children.JoinAll();
  const double seconds = SecondsNow() - start;
  for (const int connection : connections)
    close(connection);
  return MegabytesPerSecond(static_cast<double>(site.file.size()), seconds);
}

[[noreturn]] void FilecastExec(std::vector<std::string> arguments) {
  const int nothing = open("/dev/null", O_WRONLY);
  dup2(nothing, STDOUT_FILENO);
  dup2(nothing, STDERR_FILENO);
  arguments.insert(arguments.begin(), BENCH_FILECAST);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv(BENCH_FILECAST, pointers.data());
  _exit(127);
}

void FilecastReceive(const Site& site, int receiver, unsigned int percent) {
  FarEnter(site);
  const std::string folder = site.folder + "/filecast" + std::to_string(receiver);
  mkdir(folder.c_str(), 0700);
  // The copy of the round before would stay until this one is whole, and take the room of it.
  unlink((folder + "/file").c_str());
  FilecastExec({"recv", folder, "--from", "10.77.0." + std::to_string(receiver + 2), "--wait", "30",
                "--drop", std::to_string(percent / 100.0), "--seed", std::to_string(receiver + 1)});
}

// From the start of the sender's program until the last receiver's has ended, with the whole file
// on its disk. The sender itself goes on for a while, to tell those who have not heard the end.
double FilecastRun(const Site& site, int receivers, unsigned int percent) {
  Children children;
  std::vector<pid_t> running;
  running.reserve(MOST_RECEIVERS);
  for (int i = 0; i < receivers; ++i)
    running.push_back(children.Start([&, i] { FilecastReceive(site, i, percent); }));
  const timespec pause{0, 200'000'000};
  nanosleep(&pause, nullptr);  // until they have joined the group
  const double start = SecondsNow();
  // No rate of ours holds it back.
  children.Start([&] {
    FilecastExec({"send", site.folder + "/file", "--receivers", std::to_string(receivers), "--wait",
                  "30", "--rate", "1000"});
  });
  for (const pid_t child : running)
    children.Join(child);
  const double seconds = SecondsNow() - start;
  children.JoinAll();
  return MegabytesPerSecond(static_cast<double>(site.file.size()), seconds);
}

SitePointer SiteMake(bool isQuick) {
  // The memory first: a shell that makes the network needs nothing from the place it covers.
  const std::string folder = MemoryFolderMake();
  auto site = std::make_shared<Site>(Site{FarNetworkMake(MOST_RECEIVERS), folder, ""});
  site->file.resize(isQuick ? 2'000'000 : LARGEST_FILE);
  std::uint32_t random = 1;
  for (char& byte : site->file)
    byte = static_cast<char>((random = random * 1'664'525U + 1'013'904'223U) >> 24);
  std::FILE* file = std::fopen((folder + "/file").c_str(), "wb");
  Check(file != nullptr, "open");
  Check(std::fwrite(site->file.data(), 1, site->file.size(), file) == site->file.size(), "write");
  std::fclose(file);
  return site;
}

// More receivers get a smaller file, so that each case takes as long.
void FileShorten(Site& site, int receivers) {
  const std::size_t size =
      std::min(site.file.size(), LARGEST_FILE / static_cast<std::size_t>(receivers));
  site.file.resize(size);
  Check(truncate((site.folder + "/file").c_str(), static_cast<off_t>(size)) == 0, "truncate");
}

struct Load {
  std::string name;
  int receivers;
  unsigned int percent;  // lost by each receiver
};

void CaseRun(Runner& runner, const SitePointer& site, const Load& load) {
  Case subject{load.name, "% lost", static_cast<long>(load.percent)};
  subject.metrics = {{"goodput", "MB/s", true}};
  subject.rounds = runner.IsQuick() ? 1 : 3;
  const auto add = [&](const char* name, Role role, const auto& run) {
    subject.Add(name, role, [&] {
      return [site, run, load](double) { return Values{run(*site, load.receivers, load.percent)}; };
    });
  };
  add("filecast", Role::LIBRARY, FilecastRun);
  add("floor", Role::FLOOR, BareRun);
  if (load.percent == 0)
    add("TCP to each", Role::PEER,
        [](const Site& s, int count, unsigned int) { return TcpRun(s, count); });
  runner.Run(subject);
}

// The last case: the line keeps its rate.
void LineRun(Runner& runner, const SitePointer& site) {
  const std::string rate = std::to_string(LINE_MEGABITS);
  try {
    Shell("tc qdisc add dev near0 root tbf rate " + rate + "mbit burst 64kb latency 20ms");
  } catch (const Unavailable& reason) {
    std::fprintf(stderr, "skipped: a line of %s Mbit/s: %s\n", rate.c_str(), reason.what());
    return;
  }
  CaseRun(runner, site, {"at " + rate + " Mbit/s to 8", MOST_RECEIVERS, 0});
}

}  // namespace

void FilecastBench(Runner& runner) {
  if (access(BENCH_FILECAST, X_OK) != 0)
    throw Unavailable("filecast was not built");
  const SitePointer site = SiteMake(runner.IsQuick());
  for (const int receivers : {1, 3, MOST_RECEIVERS}) {
    FileShorten(*site, receivers);
    for (const unsigned int percent : {0U, 1U, 5U, 10U, 30U})
      if (!runner.IsQuick() || percent == 0 || percent == 10)
        CaseRun(runner, site, {"file to " + std::to_string(receivers), receivers, percent});
  }
  LineRun(runner, site);
}
