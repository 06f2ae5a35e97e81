#include "utils/VORNUtilsDiag.h"

#include <atomic>

int VORNUtilsVerbosity = 0;
int VORN_UTILS_DEBUG = 0;
int DEBUG_ENABLE = 1;

const char* WarnPreUtilsInit = "VORN:";
const char* WarnFrmUtilsNULLParam = "%s NULL parameter %s passed\n";
const char* WarnFrmUtilsNULLAlloc = "%s Unable to allocate object %s\n";
const char* WarnMutexNULLAlloc = "VORN: unable to allocate %s\n";
const char* WarnSharedMemory = "VORN: shared memory: unable to create new shared handle\n";
const char* WarnSharedMemoryOpen =
    "VORN: shared memory: unable to open shared handle, which may not exist any more\n";

VORNDiagNetworkListenerClass* VORN_DIAG_NETWORK_LISTENER = nullptr;

VORNDiagNetworkListenerClass::~VORNDiagNetworkListenerClass() = default;

void VornUtilsVerbositySet(int level) {
  std::atomic_ref(VORNUtilsVerbosity).store(level, std::memory_order_relaxed);
}
