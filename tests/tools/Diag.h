#ifndef TOOLS_DIAG_H
#define TOOLS_DIAG_H

#include "ipc/IpcHost.h"

/// Holds what vorndiag ends with and a part of what it prints, after the shell did `first`.
inline void DiagExpect(const std::string& arguments, int code, const std::string& part = "",
                       const std::string& first = "exec ") {
  SCOPED_TRACE(first + "vorndiag " + arguments);
  Program(VORNDIAG " " + arguments, first).Expect(code, part);
}

#endif
