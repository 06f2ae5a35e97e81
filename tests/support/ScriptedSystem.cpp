#include "support/ScriptedSystem.h"

#include <memory>
#include <new>

#include <cstdarg>
#include <cstddef>
#include <netdb.h>

// operator new(std::size_t, const std::nothrow_t&), as the linker knows it.
#if __SIZEOF_POINTER__ == 8
#define __real_NEW __real__ZnwmRKSt9nothrow_t
#define __wrap_NEW __wrap__ZnwmRKSt9nothrow_t
#else
#define __real_NEW __real__ZnwjRKSt9nothrow_t
#define __wrap_NEW __wrap__ZnwjRKSt9nothrow_t
#endif

namespace {

std::unique_ptr<ScriptedSystem> script = std::make_unique<ScriptedSystem>();

bool AllocationFails() { return ++script->allocations == script->failingAllocation; }

}  // namespace

ScriptedSystem& System() { return *script; }

void SystemReset() { script = std::make_unique<ScriptedSystem>(); }

extern "C" {

int __real_ioctl(int descriptor, unsigned long request, void* argument);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* wait);
int __real_gethostname(char* buffer, std::size_t length);
hostent* __real_gethostbyname(const char* name);
int __real_close(int descriptor);
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_NEW(std::size_t size, const std::nothrow_t& tag);

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  std::va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  script->calls.emplace_back("ioctl");
  return script->ioctl ? script->ioctl(descriptor, request, argument)
                       : __real_ioctl(descriptor, request, argument);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* wait) {
  script->calls.emplace_back("select");
  return script->select ? script->select(count, readable, wait)
                        : __real_select(count, readable, writable, failed, wait);
}

int __wrap_gethostname(char* buffer, std::size_t length) {
  script->calls.push_back("gethostname " + std::to_string(length));
  return script->gethostname ? script->gethostname(buffer, length)
                             : __real_gethostname(buffer, length);
}

hostent* __wrap_gethostbyname(const char* name) {
  script->calls.push_back(std::string("gethostbyname ") + name);
  return script->gethostbyname ? script->gethostbyname(name) : __real_gethostbyname(name);
}

int __wrap_close(int descriptor) {
  script->calls.push_back("close " + std::to_string(descriptor));
  return script->close ? script->close(descriptor) : __real_close(descriptor);
}

void* __wrap_malloc(std::size_t size) { return AllocationFails() ? nullptr : __real_malloc(size); }

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return AllocationFails() ? nullptr : __real_calloc(count, size);
}

void* __wrap_NEW(std::size_t size, const std::nothrow_t& tag) {
  return AllocationFails() ? nullptr : __real_NEW(size, tag);
}

}  // extern "C"
