#include "program/Progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned int BAR_WIDTH = 40;

}  // namespace

Progress::Progress(std::string name)
    : _name(std::move(name)), _hasTerminal(isatty(STDOUT_FILENO) == 1) {}

void Progress::Show(std::uint64_t done, std::uint64_t size) {
  const auto percent = size == 0 ? 100U : static_cast<unsigned int>(done * 100 / size);
  if (_hasTerminal) {
    BarShow(percent);
  } else if (percent / 25 > _shown / 25) {
    std::printf("filecast: %s %u %%\n", _name.c_str(), percent);
    std::fflush(stdout);
  }
  _shown = std::max(_shown, percent);
}

void Progress::BarShow(unsigned int percent) {
  if (_barIsShown && percent == _shown)
    return;
  const std::string bar(std::size_t{percent} * BAR_WIDTH / 100, '#');
  std::printf("\r%-*.*s [%-*s] %3u %%", 24, 24, _name.c_str(), static_cast<int>(BAR_WIDTH),
              bar.c_str(), percent);
  std::fflush(stdout);
  _barIsShown = true;
}

void Progress::Say(const std::string& text) {
  Clear();
  std::printf("filecast: %s\n", text.c_str());
  std::fflush(stdout);
}

void Progress::Clear() {
  if (_barIsShown)
    std::fputs("\r\033[K", stdout);
  _barIsShown = false;
}

std::string MegabytesText(std::uint64_t bytes) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
  return text;
}

std::string ThroughputText(std::uint64_t bytes, double seconds) {
  char text[80];
  std::snprintf(text, sizeof text, " in %.2f s (%.1f MB/s)", seconds,
                seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0.0);
  return MegabytesText(bytes) + text;
}
