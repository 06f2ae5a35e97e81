#include "utils/VORNThread.h"

#include "platform/KelThread.h"
#include "utils/internal/Diagnostics.h"

namespace {

struct PriorityLevel {
  int priority;
  const char* format;
};

constexpr PriorityLevel PRIORITY_LEVELS[] = {
    {72, "%s Unsupported priority PFIRST"},   {71, "%s Unsupported priority PSECOND"},
    {70, "%s Unsupported priority PTHIRD"},   {68, "%s Unsupported priority PFOURTH"},
    {67, "%s Unsupported priority PFIFTH"},   {41, "%s Unsupported priority PSIXTH"},
    {40, "%s Unsupported priority PSEVENTH"},
};

constexpr int EVERY_CHECK = 3;

}  // namespace

// Every level is asked for even after a refusal: the user learns of all the missing ones at once.
int VORNThreadInfo::PriorityIsValid() {
  int valid = 1;
  for (const PriorityLevel& level : PRIORITY_LEVELS) {
    if (KelThreadPriorityOK(level.priority, EVERY_CHECK) != 0)
      continue;
    DiagnosticPrint(Diagnostic::FAILURE, level.format, "VORNThread:");
    valid = 0;
  }
  return valid;
}
