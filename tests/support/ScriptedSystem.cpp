#include "support/ScriptedSystem.h"

#include "support/ScriptedLayer.h"

#include <new>

namespace {

ScriptedSystem script;

bool AllocationFails() { return ++script.allocations == script.failingAllocation; }

}  // namespace

ScriptedSystem& System() { return script; }

void SystemReset() { script = {}; }

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocationFails() ? nullptr : ::operator new(size);
}

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);

int __wrap_ioctl(int /*descriptor*/, unsigned long request, void* argument) {
  return script.ioctl(request, argument);
}

int __wrap_select(int count, fd_set* readable, fd_set*, fd_set*, timeval* wait) {
  Script().calls.emplace_back("select");
  return script.select(count, readable, wait);
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

void* __wrap_malloc(std::size_t size) { return AllocationFails() ? nullptr : __real_malloc(size); }

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : __real_calloc(count, size);
}

}  // extern "C"
