#include "net/miscIPUtils.h"
#include "vorndiag/Json.h"
#include "vorndiag/McastRun.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string Dotted(unsigned int address) {
  char text[VORN_ADDRESS_TEXT_SIZE];
  return VornAddressToStringPrintable(address, text);
}

std::string LiveText(const McastCell& cell) {
  if (cell.timeToLiveLow < 0)
    return "-";
  const std::string low = std::to_string(cell.timeToLiveLow);
  return cell.timeToLiveLow == cell.timeToLiveHigh
             ? low
             : low + "-" + std::to_string(cell.timeToLiveHigh);
}

// "10/10 ttl 1" when all came; "-" where nothing should have come and nothing did.
std::string CellText(const McastMatrix& matrix, const McastMatrix::Key& key) {
  const auto found = matrix.CellsGet().find(key);
  if (found == matrix.CellsGet().end())
    return "-";
  const McastCell& cell = found->second;
  std::string text = std::to_string(cell.heard) + "/" + std::to_string(cell.sent);
  if (cell.LostGet() > 0)
    text += " lost " + std::to_string(100 * cell.LostGet() / cell.sent) + "%";
  if (cell.heard > 0)
    text += " ttl " + LiveText(cell);
  return cell.repeated > 0 ? text + " +" + std::to_string(cell.repeated) + " again" : text;
}

std::string Padded(const std::string& text, std::size_t width) {
  return text + std::string(width - std::min(width, text.size()), ' ');
}

// Without blanks at the end of the line.
void LinePrint(const std::vector<std::string>& cells) {
  std::string line = Padded(cells.front(), 16);
  for (std::size_t i = 1; i < cells.size(); ++i)
    line += "  " + Padded(cells[i], 20);
  std::printf("%s\n", line.substr(0, line.find_last_not_of(' ') + 1).c_str());
}

void MatrixPrint(const McastMatrix& matrix) {
  const std::vector<std::string> receivers = matrix.ReceiversGet();
  if (receivers.empty())
    return;
  std::vector<std::string> cells{"from \\ to"};
  cells.insert(cells.end(), receivers.begin(), receivers.end());
  LinePrint(cells);
  for (const std::string& sender : matrix.SendersGet()) {
    cells.assign(1, sender);
    for (const std::string& receiver : receivers)
      cells.push_back(CellText(matrix, {sender, receiver}));
    LinePrint(cells);
  }
}

void SendersPrint(const McastReport& report) {
  for (const McastInterface& interface : report.look.interfaces)
    if (interface.isUsed)
      std::printf("from %s (%s): %d sent\n", Dotted(interface.address).c_str(),
                  interface.name.c_str(), report.sent);
}

void ReportPrint(const McastReport& report, const McastOptions& options) {
  if (options.action == "send")
    SendersPrint(report);
  MatrixPrint(report.matrix);
  for (const std::string& line : report.wrong)
    std::printf("WRONG: %s\n", line.c_str());
  for (const McastCause& cause : report.causes)
    std::printf("%s: %s\n", report.wrong.empty() ? "note" : "cause", cause.text.c_str());
}

void InterfacesWrite(const McastLook& look, JsonWriter* json) {
  json->ArrayBegin("interfaces");
  for (const McastInterface& interface : look.interfaces) {
    json->ObjectBegin();
    json->Text("name", interface.name);
    json->Text("address", interface.address != 0 ? Dotted(interface.address) : "");
    json->Flag("up", interface.isUp);
    json->Flag("carrier", interface.hasCarrier);
    json->Flag("multicast", interface.canMulticast);
    json->Flag("loopback", interface.isLoopback);
    json->Flag("used_for_groups", interface.isUsed);
    json->Flag("pruned", interface.isPruned);
    json->Number("rp_filter", interface.reversePathFilter);
    json->End();
  }
  json->End();
}

void MatrixWrite(const McastMatrix& matrix, JsonWriter* json) {
  json->ArrayBegin("matrix");
  for (const auto& [key, cell] : matrix.CellsGet()) {
    json->ObjectBegin();
    json->Text("sender", key.first);
    json->Text("receiver", key.second);
    json->Number("sent", cell.sent);
    json->Number("heard", cell.heard);
    json->Number("lost", cell.LostGet());
    json->Number("repeated", cell.repeated);
    json->Number("ttl_low", cell.timeToLiveLow);
    json->Number("ttl_high", cell.timeToLiveHigh);
    json->Flag("expected", cell.isExpected);
    json->End();
  }
  json->End();
}

void CausesWrite(const std::vector<McastCause>& causes, JsonWriter* json) {
  json->ArrayBegin("causes");
  for (const McastCause& cause : causes) {
    json->ObjectBegin();
    json->Text("kind", McastCauseName(cause.kind));
    json->Text("interface", cause.interface);
    json->Text("text", cause.text);
    json->End();
  }
  json->End();
}

void ReportWrite(const McastReport& report, const McastOptions& options) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "mcast");
  json.Text("action", options.action);
  json.Text("group", Dotted(options.group));
  json.Number("port", options.port);
  json.Number("ttl", options.timeToLive);
  json.Number("sent", report.sent);
  InterfacesWrite(report.look, &json);
  MatrixWrite(report.matrix, &json);
  json.Texts("wrong", report.wrong);
  CausesWrite(report.causes, &json);
  json.End();
  json.Print();
}

McastReport ActionRun(const McastOptions& options) {
  if (options.action == "send")
    return McastSendRun(options);
  return options.action == "recv" ? McastRecvRun(options) : McastCheckRun(options);
}

}  // namespace

ExitCode McastCommand(const McastOptions& options, Format format) {
  if (format == Format::TEXT) {
    std::printf("group %s port %d\n", Dotted(options.group).c_str(), options.port);
    std::fflush(stdout);
  }
  const McastReport report = ActionRun(options);
  if (!report.failure.empty()) {
    std::fprintf(stderr, "vorndiag: %s\n", report.failure.c_str());
    return EXIT_TROUBLE;
  }
  format == Format::JSON ? ReportWrite(report, options) : ReportPrint(report, options);
  return report.wrong.empty() ? EXIT_FINE : EXIT_TROUBLE;
}
