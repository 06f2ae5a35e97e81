#ifndef TOOLS_DIAG_H
#define TOOLS_DIAG_H

#include "ipc/IpcHost.h"

#include <cstdio>

/// What the built command prints (to both outputs) and ends with, after what the shell does first.
struct DiagResult {
  std::string text;
  int code = -1;
};

inline DiagResult DiagRun(const std::string& arguments, const std::string& first = "exec ") {
  DiagResult result;
  FILE* pipe = popen(("exec 2>&1; " + first + VORNDIAG " " + arguments).c_str(), "r");
  for (char bytes[256]; pipe != nullptr && std::fgets(bytes, sizeof bytes, pipe) != nullptr;)
    result.text += bytes;
  const int status = pipe != nullptr ? pclose(pipe) : -1;
  result.code = WEXITSTATUS(status);
  return result;
}

inline void DiagExpect(const std::string& arguments, int code, const std::string& part = "",
                       const std::string& first = "exec ") {
  SCOPED_TRACE(first + "vorndiag " + arguments);
  const DiagResult result = DiagRun(arguments, first);
  EXPECT_EQ(result.code, code) << result.text;
  EXPECT_NE(result.text.find(part), std::string::npos) << "no '" << part << "' in " << result.text;
}

#endif
