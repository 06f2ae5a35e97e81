#include "vorndiag/Commands.h"
#include "vorndiag/Json.h"
#include "vorndiag/Limits.h"

#include <cstdio>

namespace {

std::string NumberText(const LimitsLook::Number& number) {
  return number ? std::to_string(*number) : "-";
}

void LimitPrint(const Limit& limit) {
  const bool hasNumbers = limit.value || limit.used;
  std::printf("%-18s %20s %20s  %s%s\n", limit.name.c_str(),
              hasNumbers ? NumberText(limit.value).c_str() : "",
              hasNumbers ? NumberText(limit.used).c_str() : "", limit.text.c_str(),
              limit.isTrouble ? "WRONG: reached" : "");
  std::printf("    refused  %s\n    raise    %s\n", limit.refused.c_str(), limit.raise.c_str());
}

void NumberWrite(const char* name, const LimitsLook::Number& number, JsonWriter* json) {
  if (number)
    json->Number(name, *number);
  else
    json->Null(name);
}

void LimitsWrite(const std::vector<Limit>& limits) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "limits");
  json.ArrayBegin("limits");
  for (const Limit& limit : limits) {
    json.ObjectBegin();
    json.Text("name", limit.name);
    NumberWrite("value", limit.value, &json);
    NumberWrite("used", limit.used, &json);
    json.Text("text", limit.text);
    json.Flag("wrong", limit.isTrouble);
    json.Text("refused", limit.refused);
    json.Text("raise", limit.raise);
    json.End();
  }
  json.End();
  json.End();
  json.Print();
}

}  // namespace

ExitCode LimitsCommand(Format format) {
  const std::vector<Limit> limits = LimitsGet(LimitsLookGet());
  if (format == Format::JSON) {
    LimitsWrite(limits);
  } else {
    std::printf("%-18s %20s %20s\n", "limit", "value", "used");
    for (const Limit& limit : limits)
      LimitPrint(limit);
  }
  for (const Limit& limit : limits)
    if (limit.isTrouble)
      return EXIT_TROUBLE;
  return EXIT_FINE;
}
