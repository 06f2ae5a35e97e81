// bench [--quick] --json FILE TARGET: runs one target and writes what it measured. scripts/bench
// runs all of them and reads the files.

#include "support/Case.h"
#include "targets.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

// What ctest counts as a skipped test.
constexpr int LEFT_OUT = 77;

struct Target {
  const char* name;
  void (*run)(Runner&);
};
constexpr Target TARGETS[] = {
    {"queue", QueueBench},   {"datagram", DatagramBench}, {"clock", ClockBench},
    {"events", EventsBench}, {"numbers", NumbersBench},   {"bitmap", BitmapBench},
    {"hosts", HostsBench},   {"texts", TextsBench},       {"filecast", FilecastBench},
};

int TargetRun(const Target& target, bool isQuick, std::FILE* file) {
  Runner runner(target.name, isQuick, file);
  try {
    target.run(runner);
  } catch (const Unavailable& reason) {
    std::fprintf(stderr, "skipped: %s: %s\n", target.name, reason.what());
    return LEFT_OUT;
  } catch (const std::exception& reason) {
    runner.Fail(reason.what());
  }
  return runner.IsGood() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const bool isQuick = argc == 5 && std::strcmp(argv[1], "--quick") == 0;
  char** arguments = argv + (isQuick ? 2 : 1);
  if ((argc != 4 && !isQuick) || std::strcmp(arguments[0], "--json") != 0) {
    std::fputs("usage: bench [--quick] --json FILE TARGET\n", stderr);
    return 2;
  }
  for (const Target& target : TARGETS) {
    if (std::strcmp(target.name, arguments[2]) != 0)
      continue;
    std::FILE* file = std::fopen(arguments[1], "w");
    if (file == nullptr) {
      std::perror(arguments[1]);
      return 1;
    }
    const int result = TargetRun(target, isQuick, file);
    return std::fclose(file) == 0 ? result : 1;
  }
  std::fprintf(stderr, "bench: no target %s\n", arguments[2]);
  return 2;
}
