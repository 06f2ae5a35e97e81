#include "net/VORNDGram.h"
#include "net/miscIPUtils.h"
#include "platform/KelThread.h"
#include "utils/internal/Diagnostics.h"

#include <climits>
#include <cstdlib>

VORNNICProperties* VORN_NIC = nullptr;
int VORN_NIC_COUNT = 0;
int VORNDGramClass::NICReferenceCount = 0;

int VORNDGramClass::NICInitialize() {
  KelThreadLock();
  const bool countable = NICReferenceCount < INT_MAX;
  if (VORN_NIC == nullptr && countable)
    VORN_NIC =
        static_cast<VORNNICProperties*>(std::calloc(VORN_NIC_CAPACITY, sizeof(VORNNICProperties)));
  if (VORN_NIC == nullptr || !countable) {
    KelThreadUnlock();
    return 0;
  }
  if (VORN_NIC_COUNT <= 0)
    NicInterfaceGet(VORN_NIC, &VORN_NIC_COUNT);
  // The counts are exported and can be written by anybody: a negative one stands for no user.
  if (NICReferenceCount < 0)
    NICReferenceCount = 0;
  ++NICReferenceCount;
  KelThreadUnlock();
  return 1;
}

int VORNDGramClass::NICDestroy() {
  KelThreadLock();
  const bool unmatched = NICReferenceCount <= 0;
  if (!unmatched) {
    --NICReferenceCount;
    if (VORN_NIC != nullptr && NICReferenceCount == 0) {
      std::free(VORN_NIC);
      VORN_NIC = nullptr;
      VORN_NIC_COUNT = 0;
    }
  }
  const int references = NICReferenceCount;
  KelThreadUnlock();
  if (!unmatched)
    return 1;
  DiagnosticPrint(Diagnostic::NOTE,
                  "%s can't destroy NIC list, refcount already %d (too many calls to "
                  "VornAppDestroy?)\n",
                  WarnPreUtilsInit, references);
  return 0;
}

int VORNDGramClass::NICIsValid() { return VORN_NIC != nullptr && VORN_NIC_COUNT > 0 ? 1 : 0; }

int VORNDGramClass::NICIsThisNodeIP(unsigned int address) {
  for (int i = 0; VORN_NIC != nullptr && i < VORN_NIC_COUNT; ++i)
    if (VORN_NIC[i].address == address)
      return 1;
  return address == VORN_LOOPBACK_ADDRESS ? 1 : 0;
}

unsigned int VORNDGramClass::NICHostIPMap(unsigned int address) {
  return NICIsThisNodeIP(address) != 0 ? VORN_LOOPBACK_ADDRESS : address;
}

int VORNDGramClass::NICIsMulticastSupported() {
  for (int i = 0; VORN_NIC != nullptr && i < VORN_NIC_COUNT; ++i)
    if (VornNicIsMulticastCapable(VORN_NIC[i]))
      return 1;
  return 0;
}
