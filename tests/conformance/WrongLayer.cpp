// The lower layer of this machine, made wrong in the way that VORN_WRONG names: the linker puts
// these operations in the place of the layer's own.

#include "platform/DequeVoid.h"
#include "platform/HTClass.h"
#include "platform/KelDGram.h"
#include "platform/KelMutex.h"
#include "platform/KelNtpTime.h"
#include "platform/KelSemaphore.h"
#include "platform/VornCDRStream.h"
#include "support/Wrapped.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

static bool IsWrong(const char* way) {
  const char* wrong = std::getenv("VORN_WRONG");
  return wrong != nullptr && std::strcmp(wrong, way) == 0;
}

WRAPPED("_Z13KelNtpTimeGetP10KELNtpTime", int, TimeGet, KELNtpTime* time) {
  static thread_local int readings = 0;
  const int result = TimeGetReal(time);
  if (IsWrong("clock-falls") && ++readings % 1000 == 0)
    --time->sec;
  return result;
}
WRAPPED("_Z12KelMutexTakeP8KELMutex", int, MutexTake, KELMutex* mutex) {
  return IsWrong("mutex-open") ? 1 : MutexTakeReal(mutex);
}
WRAPPED("_Z12KelMutexGiveP8KELMutex", int, MutexGive, KELMutex* mutex) {
  return IsWrong("mutex-open") ? 1 : MutexGiveReal(mutex);
}
WRAPPED("_Z14KelMutexDeleteP8KELMutex", void, MutexDelete, KELMutex* mutex) {
  if (!IsWrong("delete-leaks"))
    MutexDeleteReal(mutex);
}
WRAPPED("_Z18KelSemaphoreDeleteP12KELSemaphore", void, SemaphoreDelete, KELSemaphore* semaphore) {
  if (!IsWrong("delete-leaks"))
    SemaphoreDeleteReal(semaphore);
}
WRAPPED("_Z15KelThreadUnlockv", int, ThreadUnlock, ) {
  const int result = ThreadUnlockReal();
  while (IsWrong("process-lock-flat") && ThreadUnlockReal() != 0) {
  }
  return result;
}
WRAPPED("_Z19KelThreadPriorityOKii", int, PriorityOK, int priority, int checks) {
  return IsWrong("priority-any") ? 1 : PriorityOKReal(priority, checks);
}
int (*optionSetReal)(KELDGram*, int, void*, int) = nullptr;
WRAPPED("_Z18KelDGramInitializeP8KELDGram", int, DGramInitialize, KELDGram* self) {
  const int result = DGramInitializeReal(self);
  optionSetReal = self->optionSet;
  if (result != 0 && IsWrong("option-errno"))
    self->optionSet = [](KELDGram* dgram, int code, void* value, int size) {
      const int done = optionSetReal(dgram, code, value, size);
      errno = 0;
      return done;
    };
  return result;
}
WRAPPED("_Z15KelDGramReleaseP8KELDGram", void, DGramRelease, KELDGram* self) {
  if (self != nullptr && IsWrong("release-leaks"))
    self->socketRecord = nullptr;
  DGramReleaseReal(self);
}
// Lets `stream` count from a multiple of 4 in memory, if it begins `bytes` behind one.
static void StartMove(VORNCDRStream* stream, int bytes) {
  stream->buffer -= bytes;
  stream->capacity += bytes;
  stream->position += bytes;
}
static int BytesBehindAMultiple(const VORNCDRStream* stream) {
  return IsWrong("aligned-address")
             ? static_cast<int>(reinterpret_cast<std::uintptr_t>(stream->buffer) % 4)
             : 0;
}
WRAPPED("_Z21VornCDR4ByteSerializeP13VORNCDRStreamPKv", int, Serialize, VORNCDRStream* stream,
        const void* item) {
  if (stream == nullptr)
    return SerializeReal(stream, item);
  if (IsWrong("padding-skipped"))
    VornCDRStreamPositionSet(stream, (stream->position + 3) & ~3);
  const int bytes = BytesBehindAMultiple(stream);
  StartMove(stream, bytes);
  const int result = SerializeReal(stream, item);
  StartMove(stream, -bytes);
  return result;
}
WRAPPED("_Z23VornCDR4ByteDeserializeP13VORNCDRStreamPv", int, Deserialize, VORNCDRStream* stream,
        void* item) {
  const int bytes = BytesBehindAMultiple(stream);
  StartMove(stream, bytes);
  const int result = DeserializeReal(stream, item);
  StartMove(stream, -bytes);
  return result;
}
WRAPPED("_ZN9DequeVoid10RemoveNodeEP13DequeVoidNode", DequeVoidNode*, RemoveNode, DequeVoid* list,
        DequeVoidNode* node) {
  DequeVoidNode* removed = RemoveNodeReal(list, node);
  return IsWrong("list-null") ? nullptr : removed;
}
WRAPPED("_ZN7HTClass10InsertNodeEPK10HTKeyClassPvsP12HTRemoveFunci", int, InsertNode,
        HTClass* table, const HTKeyClass* key, void* data, short keySize, HTRemoveFunc* remove,
        int locks) {
  const int result = InsertNodeReal(table, key, data, keySize, remove, locks);
  return IsWrong("table-duplicate") ? 1 : result;
}
WRAPPED("_ZN7HTClass13ForAllMatchesEP11HTMatchFuncP10HTExecFunci", int, ForAllMatches,
        HTClass* table, HTMatchFunc* match, HTExecFunc* exec, int locks) {
  const int result = ForAllMatchesReal(table, match, exec, locks);
  return IsWrong("walk-whole") ? 1 : result;
}
