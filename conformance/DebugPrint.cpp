#include "Clause.h"

#include "platform/KelDebug.h"

#include <cstdio>
#include <string>

#include <unistd.h>

namespace {

// What comes out on standard output and standard error while `print` runs.
template <typename Print> std::string PrintedGet(Print print) {
  std::FILE* file = std::tmpfile();
  if (file == nullptr)
    ClauseSkip("no temporary file");
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
    dup2(fileno(file), descriptor);
  print();
  std::fflush(nullptr);
  std::rewind(file);
  std::string text(100000, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  if (text.empty())
    ClauseSkip("what it prints goes neither to standard output nor to standard error");
  return text;
}

// Every conversion that the library uses.
bool TextIsFormatted() {
  return PrintedGet([] {
           KelDebugPrint("%s id %d refCount %d (%ld,%lu)\n", "VORN:", 7, -7, -8L, 8UL);
         }) == "VORN: id 7 refCount -7 (-8,8)\n";
}

bool PiecesMakeALine() {
  return PrintedGet([] {
           for (const char* piece : {"(", "UP", ",", "MULTICAST", ")\n"})
             KelDebugPrint("%s", piece);
         }) == "(UP,MULTICAST)\n";
}

bool ThreadsPrintWholePieces() {
  const std::string printed = PrintedGet([] {
    ThreadsRun(4, [](int) {
      for (int i = 0; i < 500; ++i)
        KelDebugPrint("%s", "abcdefghijklmno\n");
    });
  });
  std::string expected;
  for (int i = 0; i < 2000; ++i)
    expected += "abcdefghijklmno\n";
  return printed == expected;
}

}  // namespace

Clauses DebugPrintClauses() {
  return {
      {"KelDebugPrint", "formats as printf does", TextIsFormatted},
      {"KelDebugPrint", "adds nothing to a piece: several make a line", PiecesMakeALine},
      {"KelDebugPrint", "prints whole pieces from several threads", ThreadsPrintWholePieces},
  };
}
