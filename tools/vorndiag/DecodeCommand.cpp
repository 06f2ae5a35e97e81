#include "vorndiag/Commands.h"
#include "vorndiag/Decode.h"
#include "vorndiag/Json.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace {

constexpr std::size_t ROW_BITS = 64;
constexpr std::size_t GROUP_BITS = 8;

WireForm FormGet(const std::string& name) {
  if (name == "time")
    return WireForm::TIME;
  return name == "sn" ? WireForm::SEQUENCE_NUMBER : WireForm::BITMAP;
}

// "##.....# ........": a blank after each eight.
std::string Grouped(const std::string& bits) {
  std::string grouped;
  for (std::size_t i = 0; i < bits.size(); i += GROUP_BITS)
    grouped += (i > 0 ? " " : "") + bits.substr(i, GROUP_BITS);
  return grouped;
}

// Wraps as the library's numbers do: a lead may be the largest of all.
std::int64_t NumberAfter(std::int64_t number, std::size_t count) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(number) + count);
}

std::size_t OnesCount(const std::string& bits) {
  return static_cast<std::size_t>(std::count(bits.begin(), bits.end(), '#'));
}

void BitmapPrint(const Decoded& decoded) {
  const std::string& bits = decoded.bits;
  std::printf("lead %" PRId64 ", %zu bits, %zu of them set\n", decoded.number, bits.size(),
              OnesCount(bits));
  for (std::size_t i = 0; i < bits.size(); i += ROW_BITS)
    std::printf("%20" PRId64 "  %s\n", NumberAfter(decoded.number, i),
                Grouped(bits.substr(i, ROW_BITS)).c_str());
  if (OnesCount(decoded.tail) > 0)
    std::printf("past the window, in its last word: %s\n", decoded.tail.c_str());
}

void DecodedPrint(const Decoded& decoded) {
  if (!decoded.error.empty())
    std::printf("WRONG: %s\n", decoded.error.c_str());
  else if (decoded.form == WireForm::TIME)
    std::printf("%s s%s, sec %" PRId64 ", frac 0x%08" PRIx64 "\n", decoded.text.c_str(),
                decoded.isInfinite ? " (the infinite time)" : "", decoded.words[0],
                static_cast<std::uint64_t>(decoded.words[1]));
  else if (decoded.form == WireForm::SEQUENCE_NUMBER)
    std::printf("%" PRId64 ", high %" PRId64 ", low %" PRId64 ", %s\n", decoded.number,
                decoded.words[0], decoded.words[1], decoded.text.c_str());
  else
    BitmapPrint(decoded);
}

void FieldsWrite(const Decoded& decoded, JsonWriter* json) {
  json->Text("text", decoded.text);
  if (decoded.form == WireForm::TIME) {
    json->Number("sec", decoded.words[0]);
    json->Number("frac", decoded.words[1]);
    json->Flag("infinite", decoded.isInfinite);
  } else if (decoded.form == WireForm::SEQUENCE_NUMBER) {
    json->Number("number", decoded.number);
    json->Number("high", decoded.words[0]);
    json->Number("low", decoded.words[1]);
  } else {
    json->Number("lead", decoded.number);
    json->Number("size", static_cast<std::int64_t>(decoded.bits.size()));
    json->Text("bits", decoded.bits);
    json->Text("tail", decoded.tail);
  }
}

void DecodedWrite(const Decoded& decoded, const DecodeOptions& options) {
  JsonWriter json;
  json.ObjectBegin();
  json.Text("command", "decode");
  json.Text("form", options.form);
  json.Text("order", options.isLittle ? "little" : "big");
  json.Text("error", decoded.error);
  if (decoded.error.empty())
    FieldsWrite(decoded, &json);
  json.End();
  json.Print();
}

}  // namespace

ExitCode DecodeCommand(const DecodeOptions& options, Format format) {
  std::string text;
  for (const std::string& part : options.hex)
    text += part + ' ';
  const std::optional<std::vector<char>> bytes = HexBytesGet(text);
  if (!bytes) {
    std::fprintf(stderr, "vorndiag: bytes are pairs of hexadecimal digits, such as fffffffe "
                         "80000000 or ff:ff:ff:fe\n");
    return EXIT_USAGE;
  }
  const Decoded decoded =
      DecodedGet(FormGet(options.form),
                 options.isLittle ? VORN_CDR_LITTLE_ENDIAN : VORN_CDR_BIG_ENDIAN, *bytes);
  if (format == Format::JSON)
    DecodedWrite(decoded, options);
  else
    DecodedPrint(decoded);
  return decoded.error.empty() ? EXIT_FINE : EXIT_TROUBLE;
}
