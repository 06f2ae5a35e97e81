#ifndef FILECAST_PROGRAM_PROGRESS_H
#define FILECAST_PROGRAM_PROGRESS_H

#include <cstdint>
#include <string>

/// How far a file has come.
struct ProgressView {
  std::string name;
  std::uint64_t done = 0;  ///< bytes
  std::uint64_t size = 0;  ///< bytes
  double rate = 0;         ///< bytes in a second; 0 while that is not known

  unsigned int PercentGet() const;
};

/// One line, like "notes.txt [#####     ]  50 %, 12.3 MB/s, 0:12 left", shorter than `columns`: a
/// terminal breaks a line that fills its last column. What does not fit goes in this order: the
/// bar, rate and time, the name. Bytes that continue a character take no column.
std::string ProgressLine(const ProgressView& view, int columns);

/// Shows how far a file has come: by a line that is written over on a terminal, otherwise by a line
/// at every quarter.
class Progress {
public:
  explicit Progress(std::string verb);

  /// Shows `done` of `size` bytes of the file `name` at a time of `seconds` on any clock.
  void Show(const std::string& name, std::uint64_t done, std::uint64_t size, double seconds);
  /// Prints a line of its own, above the bar if there is one.
  void Say(const std::string& text);
  /// Removes the bar.
  void Clear();

private:
  void RateUpdate(std::uint64_t done, double seconds);

  std::string _verb;  ///< "sent": what was done with the share that a line tells
  ProgressView _view;
  bool _hasTerminal;
  bool _barIsShown = false;
  unsigned int _quarters = 0;  ///< told
  double _shownAt = -1;        ///< seconds; below 0: never
};

/// "1 receiver", "2 receivers"; `many` where an s does not make the plural.
std::string CountText(std::uint64_t count, const char* one, const char* many = nullptr);
/// "31.2 MB"
std::string MegabytesText(std::uint64_t bytes);
/// "31.2 MB in 1.90 s (16.4 MB/s)"
std::string ThroughputText(std::uint64_t bytes, double seconds);

#endif
