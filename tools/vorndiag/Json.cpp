#include "vorndiag/Json.h"

#include <cstdio>

namespace {

constexpr const char* REPLACEMENT = "\\ufffd";

unsigned char ByteGet(const std::string& text, std::size_t position) {
  return position < text.size() ? static_cast<unsigned char>(text[position]) : 0;
}

// Bytes of the UTF-8 character at `position`; 0 where there is none. An overlong form, half of a
// pair of UTF-16 and what is past U+10FFFF are none: strict readers refuse the whole text for them.
std::size_t CharacterLength(const std::string& text, std::size_t position) {
  const unsigned char first = ByteGet(text, position);
  const unsigned char second = ByteGet(text, position + 1);
  if (first < 0x80)
    return 1;
  std::size_t length = 0;
  if (first >= 0xC2 && first <= 0xDF)
    length = 2;
  else if ((first & 0xF0) == 0xE0 && (first != 0xE0 || second >= 0xA0) &&
           (first != 0xED || second < 0xA0))
    length = 3;
  else if (first >= 0xF0 && first <= 0xF4 && (first != 0xF0 || second >= 0x90) &&
           (first != 0xF4 || second < 0x90))
    length = 4;
  for (std::size_t i = 1; i < length; ++i)
    if ((ByteGet(text, position + i) & 0xC0) != 0x80)
      return 0;
  return length;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = CharacterLength(text, i);
    const unsigned char byte = ByteGet(text, i);
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
    if (length == 0)
      quoted += REPLACEMENT;
    else if (byte < 0x20)
      quoted += escaped;
    else if (byte == '"' || byte == '\\')
      quoted.append(1, '\\').append(1, text[i]);
    else
      quoted.append(text, i, length);
    i += length == 0 ? 1 : length;
  }
  return quoted + '"';
}

}  // namespace

void JsonWriter::NameWrite(const char* name) {
  if (_needsComma)
    _text += ',';
  if (!_closers.empty() && _closers.back() == '}')
    _text += Quoted(name) + ':';
  _needsComma = true;
}

void JsonWriter::Begin(const char* name, char open, char close) {
  NameWrite(name);
  _text += open;
  _closers += close;
  _needsComma = false;
}

void JsonWriter::End() {
  _text += _closers.back();
  _closers.pop_back();
  _needsComma = true;
}

void JsonWriter::Text(const char* name, const std::string& value) {
  NameWrite(name);
  _text += Quoted(value);
}

void JsonWriter::Texts(const char* name, const std::vector<std::string>& values) {
  ArrayBegin(name);
  for (const std::string& value : values)
    Text("", value);
  End();
}

void JsonWriter::Number(const char* name, std::int64_t value) {
  NameWrite(name);
  _text += std::to_string(value);
}

void JsonWriter::Real(const char* name, double value) {
  NameWrite(name);
  char text[64];
  std::snprintf(text, sizeof text, "%.3f", value);
  _text += text;
}

void JsonWriter::Flag(const char* name, bool value) {
  NameWrite(name);
  _text += value ? "true" : "false";
}

void JsonWriter::Null(const char* name) {
  NameWrite(name);
  _text += "null";
}

void JsonWriter::Print() const {
  std::printf("%s\n", _text.c_str());
  std::fflush(stdout);
}
