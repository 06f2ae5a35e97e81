// Texts against the snprintf that a program would write, or the function that reads them.

#include "targets.h"

#include "net/miscIPUtils.h"
#include "reliability/SequenceNumber.h"
#include "support/Timed.h"
#include "time/VORNNtpTime.h"
#include "utils/miscUtils.h"

#include <arpa/inet.h>
#include <cstdio>

namespace {

constexpr unsigned int ADDRESS = 0xC0A80A65;  // 192.168.10.101

// `library` and `floor` write a text into 64 bytes.
template <typename Library, typename Floor>
void TextRun(Runner& runner, const char* name, Library library, Floor floor,
             const char* variant = "snprintf") {
  Case subject{name, "", 0};
  subject.Add("library", Role::LIBRARY, Always([library]() mutable {
                char text[64] = "";
                Keep(library(text));
                return text[0];
              }));
  subject.Add(variant, Role::FLOOR, Always([floor]() mutable {
                char text[64] = "";
                Keep(floor(text));
                return text[0];
              }));
  runner.Run(subject);
}

int DottedWrite(char* text, unsigned int a) {
  return std::snprintf(text, 64, "%u.%u.%u.%u", a >> 24, a >> 16 & 255, a >> 8 & 255, a & 255);
}

void AddressesRun(Runner& runner) {
  const auto dotted = [a = ADDRESS](char* text) { return DottedWrite(text, *Unknown(&a)); };
  TextRun(
      runner, "text of an address", [](char* text) { return VornAddressToString(ADDRESS, text); },
      dotted);
  TextRun(
      runner, "text of address and port",
      [](char* text) { return IPAndPortToString(ADDRESS, 7411, text); },
      [dotted](char* text) {
        const int length = dotted(text);
        return std::snprintf(text + length, 32, ":%d", 7411);
      });
  TextRun(
      runner, "address of a text", [](char*) { return VornStringToAddress("192.168.10.101"); },
      [](char* text) { return inet_pton(AF_INET, "192.168.10.101", text); }, "inet_pton");
}

}  // namespace

void TextsBench(Runner& runner) {
  const VORNNtpTime time = VORNNtpTime::FromWords(1'234'567, 0x80000001);
  TextRun(
      runner, "text of a time", [=](char* text) { return time.ToString(text, 64); },
      [=](char* text) {
        const auto nanoseconds =
            static_cast<unsigned int>((std::uint64_t{Unknown(&time)->frac} * 1'000'000'000U) >> 32);
        return std::snprintf(text, 64, "%d.%09u", time.sec, nanoseconds);
      });
  const SequenceNumber number = SequenceNumber::FromInteger(-77'777'777'777);
  TextRun(
      runner, "text of a number", [=](char* text) { return number.ToString(text, 64); },
      [=](char* text) {
        const std::int64_t value = -Unknown(&number)->IntegerGet();
        return std::snprintf(text, 64, "-(%d,%u)", static_cast<int>(value >> 32),
                             static_cast<unsigned int>(value));
      });
  TextRun(
      runner, "text of a version",
      [](char* text) { return VornVersionNumberToString(0x03010000, text); },
      [](char* text) { return std::snprintf(text, 10, "%d.%d%c", 3, 1, 'a'); });
  AddressesRun(runner);
}
