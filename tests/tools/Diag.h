#ifndef TOOLS_DIAG_H
#define TOOLS_DIAG_H

#include "ipc/IpcHost.h"

/// Holds what the built command ends with and a part of what it prints, after what the shell does
/// first.
inline void DiagExpect(const std::string& arguments, int code, const std::string& part = "",
                       const std::string& first = "exec ") {
  SCOPED_TRACE(first + "vorndiag " + arguments);
  Program(VORNDIAG " " + arguments, first).Expect(code, part);
}

#endif
