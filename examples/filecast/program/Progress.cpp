#include "program/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int NAME_COLUMNS = 24;
constexpr int BAR_COLUMNS = 40;
constexpr int BAR_COLUMNS_LEAST = 8;
constexpr int STANDARD_COLUMNS = 80;
constexpr double RATE_SECONDS = 3;       // a change of the rate shows after about this time
constexpr double LONGEST_LEFT = 360000;  // seconds; more is no use to anybody

int ColumnsGet() {
  winsize size = {};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : STANDARD_COLUMNS;
}

bool BeginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

// The first `columns` characters, filled up with blanks.
std::string NameFit(const std::string& name, int columns) {
  std::string text;
  int used = 0;
  for (const char byte : name) {
    used += BeginsCharacter(byte) ? 1 : 0;
    if (used > columns)
      return text;
    text += byte;
  }
  return text.append(static_cast<std::size_t>(columns - used), ' ');
}

std::string LeftText(const ProgressView& view) {
  const double left = static_cast<double>(view.size - view.done) / view.rate;
  if (left > LONGEST_LEFT)
    return "";
  const long seconds = std::lround(left);
  char text[40];
  if (seconds < 3600)
    std::snprintf(text, sizeof text, ", %ld:%02ld left", seconds / 60, seconds % 60);
  else
    std::snprintf(text, sizeof text, ", %ld:%02ld:%02ld left", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
  return text;
}

std::string BarText(unsigned int percent, int columns) {
  if (columns < BAR_COLUMNS_LEAST)
    return "";
  std::string bar(percent * static_cast<unsigned int>(columns) / 100, '#');
  bar.resize(static_cast<std::size_t>(columns), ' ');
  return " [" + bar + "]";
}

}  // namespace

unsigned int ProgressView::PercentGet() const {
  return size == 0 ? 100U : static_cast<unsigned int>(done * 100 / size);
}

std::string ProgressLine(const ProgressView& view, int columns) {
  const unsigned int percent = view.PercentGet();
  char figures[80];
  std::snprintf(figures, sizeof figures, " %3u %%", percent);
  std::string tail = figures;
  if (view.rate > 0) {
    std::snprintf(figures, sizeof figures, ", %.1f MB/s", view.rate / 1e6);
    const std::string longTail = tail + figures + LeftText(view);
    if (static_cast<int>(longTail.size()) < columns)
      tail = longTail;
  }
  int room = columns - 1 - static_cast<int>(tail.size());
  if (room < 0)
    return "";
  const int nameColumns = std::min(NAME_COLUMNS, room);
  room -= nameColumns + static_cast<int>(std::size(" []")) - 1;
  return NameFit(view.name, nameColumns) + BarText(percent, std::min(BAR_COLUMNS, room)) + tail;
}

Progress::Progress(std::string verb)
    : _verb(std::move(verb)), _hasTerminal(isatty(STDOUT_FILENO) == 1) {}

void Progress::Show(const std::string& name, std::uint64_t done, std::uint64_t size,
                    double seconds) {
  if (name != _view.name || done < _view.done) {
    _view = {name, done, size, 0};
    _quarters = 0;
    _shownAt = -1;
  }
  RateUpdate(done, seconds);
  _view.done = done;
  const unsigned int percent = _view.PercentGet();
  if (_hasTerminal) {
    std::printf("\r%s\033[K", ProgressLine(_view, ColumnsGet()).c_str());
    _barIsShown = true;
  } else if (percent / 25 > _quarters) {
    std::printf("filecast: %s %u %%\n", _verb.c_str(), percent);
    _quarters = percent / 25;
  }
  std::fflush(stdout);
}

void Progress::RateUpdate(std::uint64_t done, double seconds) {
  const double passed = seconds - _shownAt;
  if (_shownAt >= 0 && passed <= 0)
    return;
  if (_shownAt >= 0) {
    const double rate = static_cast<double>(done - _view.done) / passed;
    const double weight = _view.rate > 0 ? std::min(1.0, passed / RATE_SECONDS) : 1.0;
    _view.rate += (rate - _view.rate) * weight;
  }
  _shownAt = seconds;
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

std::string CountText(std::uint64_t count, const char* one, const char* many) {
  const std::string number = std::to_string(count) + " ";
  return number + (count == 1 ? one : many != nullptr ? many : std::string(one) + "s");
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
