#include "support/ScriptedSystem.h"

#include "support/ScriptedLayer.h"
#include "support/Wrapped.h"

#include <cerrno>
#include <mutex>
#include <new>

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
  std::set<void*>().swap(Blocks());  // cleared in its place, it would look itself up in between
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

WRAPPED("ioctl", int, Ioctl, int /*descriptor*/, unsigned long request, void* argument) {
  return StepFails("ioctl") ? -1 : script.ioctl(request, argument);
}

WRAPPED("select", int, Select, int count, fd_set* readable, fd_set* writable, fd_set* broken,
        timeval* wait) {
  Script().calls.emplace_back("select");
  return script.select(count, readable, writable, broken, wait);
}

WRAPPED("fopen64", FILE*, FileOpen, const char* path, const char* mode) {
  Script().calls.push_back(std::string("fopen ") + path + ' ' + mode);
  return script.fopen ? script.fopen() : nullptr;
}

WRAPPED("gethostname", int, HostNameGet, char* buffer, std::size_t length) {
  Script().calls.push_back("gethostname " + std::to_string(length));
  return script.gethostname(buffer);
}

WRAPPED("gethostbyname", hostent*, HostGet, const char* name) {
  Script().calls.push_back(std::string("gethostbyname ") + name);
  return script.gethostbyname(name);
}

WRAPPED("close", int, Close, int descriptor) {
  Script().calls.push_back("close " + std::to_string(descriptor));
  return 0;
}

WRAPPED("malloc", void*, Allocate, std::size_t size) {
  return AllocationFails() ? nullptr : BlockHold(AllocateReal(size));
}

WRAPPED("calloc", void*, AllocateZeros, std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : BlockHold(AllocateZerosReal(count, size));
}

WRAPPED("free", void, Free, void* block) {
  BlockRelease(block);
  FreeReal(block);
}

WRAPPED("_ZdlPv", void, Delete, void* block) {  // below with the size, by the host's width
  BlockRelease(block);
  DeleteReal(block);
}

WRAPPED("_ZdlPvm", void, DeleteSized64, void* block, std::size_t) { DeleteWrapped(block); }
WRAPPED("_ZdlPvj", void, DeleteSized32, void* block, std::size_t) { DeleteWrapped(block); }
