#ifndef VORNDIAG_JSON_H
#define VORNDIAG_JSON_H

#include <cstdint>
#include <string>
#include <vector>

/// Writes one JSON text, value after value:
///
///     JsonWriter json;
///     json.ObjectBegin();
///     json.Number("id", 7);
///     json.ArrayBegin("lines");
///     json.Text("", "nothing wrong");
///     json.End();
///     json.End();                 // {"id":7,"lines":["nothing wrong"]}
///
/// The name of a value is ignored where an array holds it. The caller closes what it opens.
class JsonWriter {
public:
  void ObjectBegin(const char* name = "") { Begin(name, '{', '}'); }
  void ArrayBegin(const char* name = "") { Begin(name, '[', ']'); }
  /// Closes the object or array that was opened last.
  void End();

  /// A text. Bytes that are no UTF-8 (a process may have any name) become U+FFFD.
  void Text(const char* name, const std::string& value);
  void Texts(const char* name, const std::vector<std::string>& values);
  void Number(const char* name, std::int64_t value);
  /// With three decimals.
  void Real(const char* name, double value);
  void Flag(const char* name, bool value);
  void Null(const char* name);

  /// What was written so far.
  const std::string& Get() const { return _text; }
  /// Prints it as one line on standard output.
  void Print() const;

private:
  void Begin(const char* name, char open, char close);
  void NameWrite(const char* name);

  std::string _text;
  std::string _closers;  // of what is open, the innermost last
  bool _needsComma = false;
};

#endif
