#ifndef BENCH_SUPPORT_CASE_H
#define BENCH_SUPPORT_CASE_H

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

/// A case is one thing to do. Its variants do it: the library, the bare floor (the same system
/// calls and copies, written by hand) and the peers, which are what a user would pick instead.
enum class Role { LIBRARY, FLOOR, PEER };

/// What a case measures. Less is better, unless it is said.
struct Metric {
  std::string name;  ///< after the case's name, where a case has several; else empty
  std::string unit;
  bool isMoreBetter = false;
};

/// One value for each metric of the case.
using Values = std::vector<double>;
/// Does the thing for about so many seconds.
using Measure = std::function<Values(double seconds)>;

/// The host does not have what a variant needs. A peer is then left out, with this reason.
struct Unavailable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Variant {
  std::string name;
  Role role;
  Measure measure;
  std::string leftOut;  ///< why there is no `measure`
};

struct Case {
  std::string name;
  std::string parameter;  ///< what `value` counts; empty: the case has no parameter
  long value = 0;
  std::vector<Metric> metrics = {{"", "ns"}};
  double effort = 1;  ///< how much more time than others it needs for steady values
  int rounds = 0;     ///< for what takes long however little of it is asked for; 0: as all
  std::vector<Variant> variants = {};

  /// `make` prepares the variant and returns how to measure it.
  void Add(const std::string& variant, Role role, const std::function<Measure()>& make) {
    try {
      variants.push_back({variant, role, make(), ""});
    } catch (const Unavailable& reason) {
      variants.push_back({variant, role, nullptr, reason.what()});
    }
  }
};

#endif
