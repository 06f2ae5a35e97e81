#include "support/ScriptedLayer.h"

#include "platform/KelDebug.h"
#include "platform/KelMutex.h"
#include "platform/KelThread.h"
#include "utils/VORNUtilsDiag.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>

struct KELMutex {
  std::mutex native;
};

namespace {

std::unique_ptr<ScriptedLayer> script = std::make_unique<ScriptedLayer>();

std::string BytesText(const void* value, int size) {
  std::string text;
  for (int i = 0; i < size; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, i > 0 && i % 4 == 0 ? " %02x" : "%02x",
                  static_cast<const unsigned char*>(value)[i]);
    text += byte;
  }
  return text;
}

int OptionSet(KELDGram* /*self*/, int code, void* value, int size) {
  char name[32];
  std::snprintf(name, sizeof name, "optionSet %x ", static_cast<unsigned int>(code));
  script->calls.push_back(name + BytesText(value, size));
  std::vector<int>& errors = script->optionErrno[code];
  if (errors.empty())
    return 0;
  const int error = errors.front();
  errors.erase(errors.begin());
  if (error != 0)
    errno = error;
  return error != 0 ? -1 : 0;
}

int Bind(KELDGram* /*self*/, unsigned int localAddress, int port) {
  script->calls.push_back("bind " + std::to_string(localAddress) + " " + std::to_string(port));
  return script->bindResult(port);
}

int SendTo(KELDGram* /*self*/, KELNetioAddr* /*destination*/, char* buffer, int length) {
  script->calls.push_back("sendTo " + std::to_string(length) + (buffer == nullptr ? " null" : ""));
  if (script->sendResults.empty())
    return 1;
  const int result = script->sendResults.front();
  script->sendResults.erase(script->sendResults.begin());
  return result;
}

int SocketGet(KELDGram* self) { return self->socketRecord->descriptor; }

int PortGet(KELNetioAddr* self) {
  script->calls.emplace_back("portGet");
  return self->port;
}

unsigned int AddressGet(KELNetioAddr* self) {
  script->calls.emplace_back("addressGet");
  return self->address;
}

}  // namespace

ScriptedLayer& Script() { return *script; }

void ScriptReset() {
  script = std::make_unique<ScriptedLayer>();
  VORNUtilsVerbosity = 0;
}

int ScriptedLayer::CallsCount(const std::string& prefix) const {
  return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
    return call.rfind(prefix, 0) == 0;
  }));
}

int KelDebugPrint(const char* format, ...) {
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  script->printed += text;
  return length;
}

KELMutex* KelMutexNew() { return script->mutexNewFails ? nullptr : new KELMutex; }

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

void KelMutexDelete(KELMutex* mutex) { delete mutex; }

// As much of a semaphore as the queue manager needs: it takes and gives on one thread.
struct KELSemaphore {
  std::mutex native;
};

KELSemaphore* KelSemaphoreMutexNew(int options) {
  script->calls.push_back("KelSemaphoreMutexNew " + std::to_string(options));
  return script->semaphoreNewFails ? nullptr : new KELSemaphore;
}

int KelSemaphoreTake(KELSemaphore* semaphore, const KELNtpTime* timeout) {
  script->calls.emplace_back(timeout == nullptr ? "KelSemaphoreTake" : "KelSemaphoreTake timed");
  semaphore->native.lock();
  return 1;
}

int KelSemaphoreGive(KELSemaphore* semaphore) {
  script->calls.emplace_back("KelSemaphoreGive");
  semaphore->native.unlock();
  return 1;
}

void KelSemaphoreDelete(KELSemaphore* semaphore) {
  script->calls.emplace_back("KelSemaphoreDelete");
  delete semaphore;
}

int KelThreadLock() { return ++script->threadLocks; }
int KelThreadUnlock() { return ++script->threadUnlocks; }

int KelThreadPriorityOK(int priority, int checks) {
  script->calls.push_back("priority " + std::to_string(priority) + " " + std::to_string(checks));
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

int KelNetioInit() {
  script->calls.emplace_back("KelNetioInit");
  return 1;
}

void KelNetioAddrInitialize(KELNetioAddr* self, unsigned int address, int port) {
  *self = {PortGet, AddressGet, address, port};
}

int KelDGramInitialize(KELDGram* self) {
  script->calls.emplace_back("KelDGramInitialize");
  if (script->dgramInitializeFails)
    return 0;
  *self = {new KELSocketRecord{script->descriptor}, Bind, SendTo, OptionSet, SocketGet, nullptr};
  return 1;
}

void KelDGramRelease(KELDGram* self) {
  script->calls.emplace_back("KelDGramRelease");
  delete self->socketRecord;
  self->socketRecord = nullptr;
}

KELDGram* KelDGramNew() {
  if (script->dgramNewFails)
    return nullptr;
  auto* self = new KELDGram;
  KelDGramInitialize(self);
  return self;
}

void KelDGramDelete(KELDGram* self) {
  KelDGramRelease(self);
  delete self;
}
