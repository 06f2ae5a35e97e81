#include "support/ScriptedLayer.h"

#include "platform/HTClass.h"
#include "platform/KelDebug.h"
#include "platform/KelMutex.h"
#include "platform/KelSemaphore.h"
#include "platform/KelThread.h"
#include "support/ScriptedSystem.h"
#include "support/Wrapped.h"
#include "utils/VORNUtilsDiag.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

struct KELMutex {
  std::mutex native;
};

namespace {

std::unique_ptr<ScriptedLayer> script = std::make_unique<ScriptedLayer>();

int CallNote(const std::string& call, int descriptor = -1) {
  script->calls.push_back(descriptor >= 0 ? call + " on " + std::to_string(descriptor) : call);
  return 1;
}

int SocketGet(KELDGram* self) { return self->socketRecord->descriptor; }

int FirstDrain(std::vector<int>* results, int otherwise) {
  if (results->empty())
    return otherwise;
  const int first = results->front();
  results->erase(results->begin());
  return first;
}

std::string OptionText(int code, const void* value, int size) {
  // clang-format off
  static const std::map<int, std::string> NAMES{
      {KEL_DGRAM_OPT_REUSEADDR, "REUSEADDR"}, {KEL_DGRAM_OPT_SNDBUF, "SNDBUF"}, {KEL_DGRAM_OPT_RCVBUF, "RCVBUF"},
      {KEL_DGRAM_OPT_DROP_MEMBERSHIP, "DROP_MEMBERSHIP"}, {KEL_DGRAM_OPT_ADD_MEMBERSHIP, "ADD_MEMBERSHIP"},
      {KEL_DGRAM_OPT_MULTICAST_TTL, "MULTICAST_TTL"}, {KEL_DGRAM_OPT_MULTICAST_IF, "MULTICAST_IF"},
      {KEL_DGRAM_OPT_MULTICAST_LOOP, "MULTICAST_LOOP"}, {KEL_DGRAM_OPT_BROADCAST, "BROADCAST"}};
  // clang-format on
  constexpr int INTEGERS = KEL_DGRAM_OPT_REUSEADDR | KEL_DGRAM_OPT_SNDBUF | KEL_DGRAM_OPT_RCVBUF |
                           KEL_DGRAM_OPT_BROADCAST;
  std::string text = NAMES.at(code);
  if ((code & INTEGERS) != 0 && size == sizeof(int))
    return text + ' ' + std::to_string(*static_cast<const int*>(value));
  for (int i = 0; i < size; ++i)
    text += (i % 4 == 0 ? ' ' : '.') + std::to_string(static_cast<const unsigned char*>(value)[i]);
  return text;
}

int OptionSet(KELDGram* self, int code, void* value, int size) {
  const std::string call = OptionText(code, value, size);
  CallNote(call, SocketGet(self));
  const int error = StepFails(call.c_str()) ? EPERM : FirstDrain(&script->optionErrno[code], 0);
  if (error != 0)
    errno = error;
  return error != 0 ? -1 : 0;
}

int Bind(KELDGram* self, unsigned int localAddress, int port) {
  CallNote("bind " + std::to_string(localAddress) + " " + std::to_string(port), SocketGet(self));
  return StepFails("bind") ? 0 : script->bindResult(port);
}

int SendTo(KELDGram* self, KELNetioAddr* /*destination*/, char* buffer, int length) {
  const char* const null = buffer == nullptr ? " null" : "";
  CallNote("sendTo " + std::to_string(length) + null, SocketGet(self));
  return StepFails("sendTo") ? 0 : FirstDrain(&script->sendResults, 1);
}

}  // namespace

ScriptedLayer& Script() { return *script; }

void ScriptReset() {
  script = std::make_unique<ScriptedLayer>();
  VORNUtilsVerbosity = 0;
}

std::string CallsDrain() {
  std::string text;
  for (const std::string& call : std::exchange(script->calls, {}))
    text += (text.empty() ? "" : "; ") + call;
  return text;
}

ScriptedLayer::ScriptedLayer() {
  KelDebugSinkSet([](const char* text, void* to) { *static_cast<std::string*>(to) += text; },
                  &printed);
}

KELMutex* KelMutexNew() {
  if (StepFails("KelMutexNew"))
    return nullptr;
  ++script->mutexes;
  return new KELMutex;
}

int KelMutexTake(KELMutex* mutex) {
  ++script->mutexTakes;
  mutex->native.lock();
  return 1;
}

int KelMutexGive(KELMutex* mutex) {
  ++script->mutexGives;
  mutex->native.unlock();
  return 1;
}

void KelMutexDelete(KELMutex* mutex) {
  script->mutexes -= mutex != nullptr ? 1 : 0;
  delete mutex;
}

// Taken and given on one thread: a script of calls is all that it needs.
struct KELSemaphore {};

KELSemaphore* KelSemaphoreMutexNew(int options) {
  CallNote("KelSemaphoreMutexNew " + std::to_string(options));
  return StepFails("KelSemaphoreMutexNew") ? nullptr : new KELSemaphore;
}

int KelSemaphoreTake(KELSemaphore* /*semaphore*/, const KELNtpTime* timeout) {
  return CallNote(timeout == nullptr ? "KelSemaphoreTake" : "KelSemaphoreTake timed");
}

int KelSemaphoreGive(KELSemaphore* /*semaphore*/) { return CallNote("KelSemaphoreGive"); }

void KelSemaphoreDelete(KELSemaphore* semaphore) {
  CallNote("KelSemaphoreDelete");
  delete semaphore;
}

int KelThreadLock() { return ++script->threadLocks; }
int KelThreadUnlock() { return ++script->threadUnlocks; }

int KelThreadPriorityOK(int priority, int checks) {
  CallNote("priority " + std::to_string(priority) + " " + std::to_string(checks));
  return script->refusedPriorities.count(priority) == 0 ? 1 : 0;
}

int KelNtpTimeInit(KELNtpTime* clockInfo, KELNtpTime* rollover) {
  *clockInfo = {};
  *rollover = script->rollover;
  return 1;
}

int KelNtpTimeGet(KELNtpTime* time) {
  ++script->clockReadings;
  *time = script->clock();
  return 1;
}

char* KelNtpTimeToString(const KELNtpTime* time, char* buffer) {
  std::snprintf(buffer, KEL_NTP_TIME_TEXT_SIZE, "%d s %x", time->sec, time->frac);
  return buffer;
}

int KelDGramInitialize(KELDGram* self) {
  CallNote("KelDGramInitialize");
  if (StepFails("KelDGramInitialize"))
    return 0;
  *self = {new KELSocketRecord{script->descriptor}, Bind, SendTo, OptionSet, SocketGet, nullptr};
  script->descriptor += script->descriptor >= 0 ? 1 : 0;
  ++script->openSockets;
  return 1;
}

void KelDGramRelease(KELDGram* self) {
  CallNote("KelDGramRelease");
  script->openSockets -= self->socketRecord != nullptr ? 1 : 0;
  delete self->socketRecord;
  self->socketRecord = nullptr;
}

KELDGram* KelDGramNew() {
  auto* self = new KELDGram;
  if (KelDGramInitialize(self) != 0)
    return self;
  delete self;
  return nullptr;
}

void KelDGramDelete(KELDGram* self) {
  KelDGramRelease(self);
  delete self;
}

// The container is the real one; what the library asks it for is written down.

WRAPPED("_ZN7HTClass4FindEPK10HTKeyClasssi", HTNodeClass*, Find, HTClass* table,
        const HTKeyClass* key, short which, int locks) {
  CallNote("Find " + std::to_string(which) + ", lock " + std::to_string(locks));
  return FindReal(table, key, which, locks);
}

WRAPPED("_ZN7HTClass10InsertNodeEPK10HTKeyClassPvsP12HTRemoveFunci", int, InsertNode,
        HTClass* table, const HTKeyClass* key, void* data, short size, HTRemoveFunc* remove,
        int locks) {
  CallNote("InsertNode " + std::to_string(size) + ", lock " + std::to_string(locks));
  return InsertNodeReal(table, key, data, size, remove, locks);
}

WRAPPED("_ZN7HTClass13ForAllMatchesEP11HTMatchFuncP10HTExecFunci", int, ForAllMatches,
        HTClass* table, HTMatchFunc* match, HTExecFunc* exec, int locks) {
  const std::string chosen = match == nullptr ? "null" : "some";
  CallNote("ForAllMatches " + chosen + ", lock " + std::to_string(locks));
  return ForAllMatchesReal(table, match, exec, locks);
}
