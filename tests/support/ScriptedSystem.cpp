#include "support/ScriptedSystem.h"

#include "support/ScriptedLayer.h"

#include <cerrno>
#include <mutex>
#include <new>
#include <set>

namespace {

ScriptedSystem script;

std::recursive_mutex blocksMutex;  // since the set gives back memory itself

// Never destroyed: other statics give back memory later.
std::set<void*>& Blocks() {
  static auto& blocks = *new std::set<void*>;
  return blocks;
}

void* BlockHold(void* block) {
  const std::lock_guard lock(blocksMutex);
  Blocks().insert(block);
  return block;
}

void BlockRelease(void* block) {
  const std::lock_guard lock(blocksMutex);
  Blocks().erase(block);
}

bool AllocationFails() {
  const bool fails = StepFails("memory");
  return ++script.allocations == script.failingAllocation || fails;
}

}  // namespace

ScriptedSystem& System() { return script; }

void SystemReset() {
  script = {};
  const std::lock_guard lock(blocksMutex);
  Blocks().clear();
}

bool StepFails(const char* step) {
  if (++script.steps != script.failingStep)
    return false;
  script.failedStep = step;
  errno = EPERM;
  return true;
}

int BlocksHeld() { return static_cast<int>(Blocks().size()); }

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocationFails() ? nullptr : BlockHold(::operator new(size));
}

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);
void __real__ZdlPv(void* block);

int __wrap_ioctl(int /*descriptor*/, unsigned long request, void* argument) {
  return StepFails("ioctl") ? -1 : script.ioctl(request, argument);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* broken, timeval* wait) {
  Script().calls.emplace_back("select");
  return script.select(count, readable, writable, broken, wait);
}

FILE* __wrap_fopen64(const char* path, const char* mode) {
  Script().calls.push_back(std::string("fopen ") + path + ' ' + mode);
  return script.fopen ? script.fopen() : nullptr;
}

int __wrap_gethostname(char* buffer, std::size_t length) {
  Script().calls.push_back("gethostname " + std::to_string(length));
  return script.gethostname(buffer);
}

hostent* __wrap_gethostbyname(const char* name) {
  Script().calls.push_back(std::string("gethostbyname ") + name);
  return script.gethostbyname(name);
}

int __wrap_close(int descriptor) {
  Script().calls.push_back("close " + std::to_string(descriptor));
  return 0;
}

void* __wrap_malloc(std::size_t size) {
  return AllocationFails() ? nullptr : BlockHold(__real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : BlockHold(__real_calloc(count, size));
}

void __wrap_free(void* block) {
  BlockRelease(block);
  __real_free(block);
}

void __wrap__ZdlPv(void* block) {  // operator delete; below with the size, by the host's width
  BlockRelease(block);
  __real__ZdlPv(block);
}

void __wrap__ZdlPvm(void* block, std::size_t) { __wrap__ZdlPv(block); }
void __wrap__ZdlPvj(void* block, std::size_t) { __wrap__ZdlPv(block); }

}  // extern "C"
