#include "platform/KelDebug.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {

void StandardErrorWrite(const char* text, void* /*context*/) { std::fputs(text, stderr); }

std::atomic<KELDebugSink> debugSink{StandardErrorWrite};
std::atomic<void*> debugContext{nullptr};

}  // namespace

int KelDebugPrint(const char* format, ...) {
  if (format == nullptr)
    return -1;
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < 0)
    return length;
  debugSink.load(std::memory_order_acquire)(text, debugContext.load(std::memory_order_relaxed));
  return length < static_cast<int>(sizeof text) ? length : static_cast<int>(sizeof text) - 1;
}

void KelDebugSinkSet(KELDebugSink sink, void* context) {
  debugContext.store(context, std::memory_order_relaxed);
  // Publishes the context stored above to the load in KelDebugPrint.
  debugSink.store(sink != nullptr ? sink : StandardErrorWrite, std::memory_order_release);
}
