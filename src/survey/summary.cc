#include "survey/summary.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "survey/repeats.h"

namespace velmo {
namespace {

constexpr double kConfidence = 0.95;

// The largest k for which the k-th smallest and the k-th largest of `n` values enclose the median
// of what they were drawn from with kConfidence; 0: none. The number of values below the median is
// binomial with probability 1/2.
int order_of_bounds(int n) {
  // Logarithms: of more than 1,074 values, P(X = 0) is smaller than any double.
  double log_term = -n * std::log(2.0);  // of P(X = k)
  double below = std::exp(log_term);     // P(X <= k)
  int k = 0;
  while (2 * below <= 1 - kConfidence) {
    log_term += std::log(static_cast<double>(n - k) / (k + 1));
    below += std::exp(log_term);
    ++k;
  }
  return k;
}

}  // namespace

Estimate estimate(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  Estimate e;
  e.repeats = static_cast<int>(n);
  e.median = (values[(n - 1) / 2] + values[n / 2]) / 2;
  const int order = order_of_bounds(e.repeats);
  const size_t first = order > 0 ? order - 1 : 0;
  e.low = values[first];
  e.high = values[n - 1 - first];
  e.interval = order > 0 ? "95 %" : "range";
  return e;
}

double relative_error(const Estimate& e) {
  return e.median > 0 ? (e.high - e.low) / 2 / e.median : 1;
}

Summary summarize(const std::vector<Repeat>& repeats) {
  std::set<std::string> names;
  for (const Repeat& repeat : repeats) {
    for (const auto& [name, value] : repeat.figures) names.insert(name);
  }
  Summary summary;
  for (const std::string& name : names) {
    const std::vector<double> values = counted_values(repeats, name);
    if (!values.empty()) summary[name] = estimate(values);
  }
  return summary;
}

bool is_precise(const std::string& kind, const Summary& summary, double precision) {
  const auto found = summary.find(kind == kBandwidth ? kBytesPerSecond : kAverageNs);
  return found != summary.end() && found->second.interval != "range" &&
         relative_error(found->second) <= precision;
}

Histogram log_histogram(const std::map<int64_t, int64_t>& samples) {
  constexpr int kBins = 8;         // for each doubling
  constexpr int kBelowFirst = -1;  // all below 1 ns
  const auto bin_of = [](int64_t tenths) {
    if (tenths < 10) return kBelowFirst;
    return static_cast<int>(std::floor(std::log2(static_cast<double>(tenths) / 10) * kBins));
  };
  Histogram histogram;
  if (samples.empty()) return histogram;
  const int first = bin_of(samples.begin()->first);
  const int last = bin_of(samples.rbegin()->first);
  histogram.counts.resize(last - first + 1);
  for (const auto& [length, count] : samples) histogram.counts[bin_of(length) - first] += count;
  for (int bin = first; bin <= last + 1; ++bin) {
    histogram.edges.push_back(bin == kBelowFirst ? 0 : std::exp2(static_cast<double>(bin) / kBins));
  }
  return histogram;
}

}  // namespace velmo
