#include "vorndiag/McastRun.h"

#include "net/miscIPUtils.h"
#include "vorndiag/McastEndpoints.h"
#include "vorndiag/McastTable.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double POLL_SECONDS = 0.2;   // a signal is seen after that
constexpr double LOOK_SECONDS = 0.01;  // between two looks at what else may have come

volatile std::sig_atomic_t s_isEnded = 0;

void EndNote(int /*signal*/) { s_isEnded = 1; }

std::string Dotted(unsigned int address) {
  char text[VORN_ADDRESS_TEXT_SIZE];
  return VornAddressToStringPrintable(address, text);
}

double SecondsUntil(Clock::time_point end) {
  return std::chrono::duration<double>(end - Clock::now()).count();
}

Clock::time_point After(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

std::string HostNameGet() {
  char name[VORN_HOST_NAME_SIZE] = "";
  return VornHostNameGet(name, sizeof name) != nullptr ? name : "unknown";
}

// The first address of an interface; an interface with several has several records of one device.
unsigned int AddressOf(const McastLook& look, int index) {
  for (const McastInterface& interface : look.interfaces)
    if (interface.index == index && interface.isUsed)
      return interface.address;
  return 0;
}

std::string ThereText(const McastProbe& answer) {
  return Dotted(answer.receiver) + "@" + answer.host;
}

std::vector<McastInterface> UsedGet(const McastLook& look) {
  std::vector<McastInterface> used;
  for (const McastInterface& interface : look.interfaces)
    if (interface.isUsed)
      used.push_back(interface);
  return used;
}

McastProbe ProbeMake(const McastOptions& options, int answerPort) {
  McastProbe probe;
  probe.run = std::random_device()();
  probe.count = options.count;
  probe.answerPort = answerPort;
  return probe;
}

void CausesAdd(McastReport* report) {
  report->causes = McastCausesGet(report->look);
  if (!report->wrong.empty() && report->causes.empty())
    report->wrong.push_back(
        "no cause is seen on this host: look for a firewall, at the switch (IGMP snooping without "
        "a querier), and, where a router lies between, at the time to live");
}

void CellsJudge(McastReport* report) {
  for (const auto& [key, cell] : report->matrix.CellsGet())
    if (cell.IsTrouble())
      report->wrong.push_back(std::to_string(cell.LostGet()) + " of " + std::to_string(cell.sent) +
                              " from " + key.first + " did not come to " + key.second);
}

/// One run of `check`.
class Check {
public:
  explicit Check(const McastOptions& options)
      : _options(options), _receiver(options.group, options.port),
        _sender(options.group, options.port, options.timeToLive, options.loopback),
        _probe(ProbeMake(options, _answers.PortGet())) {}
  McastReport Run();

private:
  void ProbesSend();
  void HeardCount(double seconds);
  void Expect();
  void Judge();

  const McastOptions& _options;
  McastReceiver _answers;
  McastReceiver _receiver;
  McastSender _sender;
  McastProbe _probe;
  McastReport _report;
};

void Check::ProbesSend() {
  for (; _probe.number < _options.count && _report.look.sendError == 0; ++_probe.number) {
    _report.look.sendError = _sender.Send(_probe);
    _report.sent += _report.look.sendError == 0 ? 1 : 0;
    HeardCount(_options.interval);
  }
}

// What this host hears comes first and is many; answers come seldom and wait in their socket.
void Check::HeardCount(double seconds) {
  const Clock::time_point end = After(seconds);
  while (Clock::now() < end) {
    if (const auto arrival = _receiver.Next(std::min(SecondsUntil(end), LOOK_SECONDS));
        arrival && arrival->probe.run == _probe.run)
      _report.matrix.Add(Dotted(arrival->source),
                         Dotted(AddressOf(_report.look, arrival->interfaceIndex)), _probe.run,
                         _options.count, arrival->probe.number, arrival->timeToLive);
    if (const auto answer = _answers.Next(0);
        answer && answer->probe.run == _probe.run && answer->probe.kind == McastProbe::ANSWER)
      _report.matrix.Add(Dotted(answer->probe.sender), ThereText(answer->probe), _probe.run,
                         _options.count, answer->probe.number, answer->probe.timeToLive);
    if (_receiver.PortGet() == 0)  // there is nothing to wait for that would take time
      std::this_thread::sleep_for(std::chrono::duration<double>(LOOK_SECONDS));
  }
}

void Check::Expect() {
  if (!_options.loopback)
    return;
  for (const McastInterface& interface : UsedGet(_report.look))
    _report.matrix.Expect(Dotted(interface.address),
                          Dotted(AddressOf(_report.look, interface.index)), _options.count);
}

void Check::Judge() {
  std::set<std::string> ours;
  for (const McastInterface& interface : UsedGet(_report.look))
    ours.insert(Dotted(interface.address));
  CellsJudge(&_report);
  if (_report.matrix.IsEmpty() && _report.wrong.empty())
    _report.wrong.emplace_back("nothing was heard by anybody");
  if (_report.look.sendError != 0)
    _report.wrong.emplace_back("sending failed");
  if (_options.peer != 0 && !_report.matrix.HasOther(ours))
    _report.wrong.push_back("no answer from another host: does `vorndiag mcast recv` run on " +
                            Dotted(_options.peer) + "?");
  CausesAdd(&_report);
}

McastReport Check::Run() {
  McastLook& look = _report.look;
  look = McastLookGet(_options.peer);
  look.receives = look.sends = true;
  look.port = _options.port;
  look.portError = _receiver.PortErrorGet();
  look.isJoined = _receiver.IsJoined();
  look.loopback = _options.loopback;
  Expect();
  ProbesSend();
  HeardCount(_options.wait);
  Judge();
  return _report;
}

/// One run of `recv`.
class Listening {
public:
  explicit Listening(const McastOptions& options)
      : _options(options), _receiver(options.group, options.port),
        _answerer(options.group, options.port, 1, true), _host(HostNameGet()) {}
  McastReport Run();

private:
  void ArrivalHandle(const McastArrival& arrival);
  void Judge();

  const McastOptions& _options;
  McastReceiver _receiver;
  McastSender _answerer;
  std::string _host;
  McastReport _report;
};

void Listening::ArrivalHandle(const McastArrival& arrival) {
  if (arrival.probe.kind != McastProbe::PROBE)
    return;
  McastProbe answer = arrival.probe;
  answer.kind = McastProbe::ANSWER;
  answer.sender = arrival.source;
  answer.receiver = AddressOf(_report.look, arrival.interfaceIndex);
  answer.timeToLive = arrival.timeToLive;
  answer.host = _host;
  _report.matrix.Add(Dotted(arrival.source), Dotted(answer.receiver), answer.run, answer.count,
                     answer.number, arrival.timeToLive);
  if (answer.answerPort != 0)
    _answerer.Answer(answer, arrival.source, answer.answerPort);
}

void Listening::Judge() {
  CellsJudge(&_report);
  if (_report.matrix.IsEmpty())
    _report.wrong.emplace_back("nothing was heard");
  CausesAdd(&_report);
}

McastReport Listening::Run() {
  McastLook& look = _report.look;
  look = McastLookGet(_options.peer);
  look.receives = true;
  look.port = _options.port;
  look.portError = _receiver.PortErrorGet();
  look.isJoined = _receiver.IsJoined();
  const Clock::time_point end = After(_options.seconds);
  while (s_isEnded == 0 && look.portError == 0 && look.isJoined) {
    const double left = _options.seconds > 0 ? SecondsUntil(end) : POLL_SECONDS;
    if (left <= 0)
      break;
    if (const auto arrival = _receiver.Next(std::min(left, POLL_SECONDS)))
      ArrivalHandle(*arrival);
  }
  Judge();
  return _report;
}

McastReport FailureReport(const std::string& failure) {
  McastReport report;
  report.failure = failure;
  return report;
}

}  // namespace

McastReport McastSendRun(const McastOptions& options) {
  const McastTable table(options.hosts);
  if (!table.FailureGet().empty())
    return FailureReport(table.FailureGet());
  McastReport report;
  report.look = McastLookGet(options.peer);
  report.look.sends = true;
  McastSender sender(options.group, options.port, options.timeToLive, options.loopback);
  McastProbe probe = ProbeMake(options, 0);
  for (; probe.number < options.count && report.look.sendError == 0; ++probe.number) {
    if (probe.number > 0)
      std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    report.look.sendError = sender.Send(probe);
    report.sent += report.look.sendError == 0 ? 1 : 0;
  }
  if (report.look.sendError != 0)
    report.wrong.emplace_back("sending failed");
  else if (UsedGet(report.look).empty())
    report.wrong.emplace_back("no interface is used for groups: nothing was sent");
  CausesAdd(&report);
  return report;
}

McastReport McastRecvRun(const McastOptions& options) {
  const McastTable table(options.hosts);
  if (!table.FailureGet().empty())
    return FailureReport(table.FailureGet());
  struct sigaction action {};
  action.sa_handler = EndNote;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  return Listening(options).Run();
}

McastReport McastCheckRun(const McastOptions& options) {
  const McastTable table(options.hosts);
  return table.FailureGet().empty() ? Check(options).Run() : FailureReport(table.FailureGet());
}
