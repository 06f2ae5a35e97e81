#include "support/Runner.h"

#include <algorithm>
#include <numeric>
#include <unistd.h>

namespace {

constexpr int ROUNDS = 9, QUICK_ROUNDS = 3;
constexpr double SECONDS = 0.02, QUICK_SECONDS = 0.002;
// A measurement that hangs ends the program: some send for ever when nobody receives.
constexpr unsigned int LONGEST_SECONDS = 120;

// Names are this project's own and hold nothing to escape; reasons can come from the host.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char byte : text)
    quoted += byte == '"' || byte == '\\' || static_cast<unsigned char>(byte) < ' ' ? '\'' : byte;
  return quoted + '"';
}

const char* RoleName(Role role) {
  return role == Role::LIBRARY ? "library" : role == Role::FLOOR ? "floor" : "peer";
}

}  // namespace

Runner::Runner(const std::string& target, bool isQuick, std::FILE* file)
    : _isQuick(isQuick), _file(file) {
  std::fprintf(_file, "{\"target\": %s, \"compiler\": %s, \"quick\": %s, \"cases\": [",
               Quoted(target).c_str(), Quoted(__VERSION__).c_str(), isQuick ? "true" : "false");
}

Runner::~Runner() { std::fputs("\n]}\n", _file); }

void Runner::Fail(const std::string& what) {
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  _isGood = false;
}

void Runner::Run(const Case& subject) {
  const Samples samples = SamplesTake(subject);
  for (std::size_t metric = 0; metric < subject.metrics.size(); ++metric)
    MetricWrite(subject, samples, metric);
}

Runner::Samples Runner::SamplesTake(const Case& subject) {
  const double seconds = (_isQuick ? QUICK_SECONDS : SECONDS) * subject.effort;
  Samples samples(subject.variants.size());
  std::vector<std::size_t> order;
  for (std::size_t v = 0; v < samples.size(); ++v) {
    const Variant& variant = subject.variants[v];
    Values unused;
    // The first time warms up, and finds the number of repetitions.
    const bool isWarm = subject.rounds > 0;
    if (variant.measure && (isWarm || MeasureOnce(subject, variant, seconds, &unused)))
      order.push_back(v);
    else if (!variant.leftOut.empty() && variant.role != Role::PEER)
      Fail(subject.name + ", " + variant.name + ": " + variant.leftOut);
  }
  const int rounds = subject.rounds > 0 ? subject.rounds : _isQuick ? QUICK_ROUNDS : ROUNDS;
  for (int round = 0; round < rounds; ++round) {
    std::shuffle(order.begin(), order.end(), _random);
    for (const std::size_t v : order) {
      Values values;
      if (MeasureOnce(subject, subject.variants[v], seconds, &values))
        samples[v].push_back(values);
    }
  }
  return samples;
}

bool Runner::MeasureOnce(const Case& subject, const Variant& variant, double seconds,
                         Values* values) {
  alarm(LONGEST_SECONDS);
  try {
    *values = variant.measure(seconds);
  } catch (const std::exception& reason) {
    Fail(subject.name + ", " + variant.name + ": " + reason.what());
  }
  alarm(0);
  return values->size() == subject.metrics.size();
}

void Runner::MetricWrite(const Case& subject, const Samples& samples, std::size_t metric) {
  const Metric& kind = subject.metrics[metric];
  std::fprintf(_file, "%s\n {\"case\": %s, \"metric\": %s, \"unit\": %s, \"more is better\": %s,",
               _isFirst ? "" : ",", Quoted(subject.name).c_str(), Quoted(kind.name).c_str(),
               Quoted(kind.unit).c_str(), kind.isMoreBetter ? "true" : "false");
  std::fprintf(_file, "\n  \"parameter\": %s, \"value\": %ld, \"variants\": [",
               Quoted(subject.parameter).c_str(), subject.value);
  for (std::size_t v = 0; v < samples.size(); ++v) {
    const Variant& variant = subject.variants[v];
    std::fprintf(_file, "%s\n   {\"name\": %s, \"role\": %s, \"left out\": %s, \"samples\": [",
                 v == 0 ? "" : ",", Quoted(variant.name).c_str(),
                 Quoted(RoleName(variant.role)).c_str(), Quoted(variant.leftOut).c_str());
    for (std::size_t round = 0; round < samples[v].size(); ++round)
      std::fprintf(_file, "%s%.6g", round == 0 ? "" : ", ", samples[v][round][metric]);
    std::fputs("]}", _file);
  }
  std::fputs("]}", _file);
  std::fflush(_file);
  _isFirst = false;
}
