#ifndef FILECAST_PROGRAM_PROGRESS_H
#define FILECAST_PROGRAM_PROGRESS_H

#include <cstdint>
#include <string>

/// How far a file has come: a bar on a terminal, otherwise a line at every quarter.
class Progress {
public:
  explicit Progress(std::string name);

  /// Shows `done` of `size` samples.
  void Show(std::uint64_t done, std::uint64_t size);
  /// Prints a line of its own, above the bar if there is one.
  void Say(const std::string& text);
  /// Removes the bar.
  void Clear();

private:
  void BarShow(unsigned int percent);

  std::string _name;
  bool _hasTerminal;
  bool _barIsShown = false;
  unsigned int _shown = 0;  ///< percent
};

/// "31.2 MB"
std::string MegabytesText(std::uint64_t bytes);
/// "31.2 MB in 1.9 s (16.4 MB/s)"
std::string ThroughputText(std::uint64_t bytes, double seconds);

#endif
