#ifndef BENCH_SUPPORT_RUNNER_H
#define BENCH_SUPPORT_RUNNER_H

#include "support/Case.h"

#include <cstdio>
#include <random>
#include <string>

/// Runs cases and writes every value that was measured, as JSON; bench/report makes medians, tables
/// and plots of them.
///
/// Why not a benchmark framework: those that can interleave shuffle all the repetitions of a
/// program. The variants of one case then run minutes apart, and a machine that slows down
/// meanwhile changes their ratio. Here the variants of a case take turns, in an order drawn anew
/// for each round, so that a ratio is one of neighbours, and each round gives one. And the cases
/// with several processes measure more than a time: processor time, switches, percentiles.
class Runner {
public:
  /// `file` gets the JSON. A quick run only shows that everything works.
  Runner(const std::string& target, bool isQuick, std::FILE* file);
  /// Ends the JSON.
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  bool IsQuick() const { return _isQuick; }
  /// False once a measurement has failed.
  bool IsGood() const { return _isGood; }
  /// Runs all variants of a case.
  void Run(const Case& subject);
  /// Notes that measuring failed, and why.
  void Fail(const std::string& what);

private:
  using Samples = std::vector<std::vector<Values>>;  // by variant, by round

  Samples SamplesTake(const Case& subject);
  bool MeasureOnce(const Case& subject, const Variant& variant, double seconds, Values* values);
  void MetricWrite(const Case& subject, const Samples& samples, std::size_t metric);

  bool _isQuick;
  bool _isGood = true;
  bool _isFirst = true;
  std::FILE* _file;
  std::mt19937 _random{20'241'107};
};

#endif
