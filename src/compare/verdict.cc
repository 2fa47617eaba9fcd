#include "compare/verdict.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "compare/rank_test.h"

namespace velmo {
namespace {

// Of a whole comparison.
constexpr double kAlpha = 0.05;

// The weight of a percentile beside that of an average or a bandwidth, of 1. Percentiles are three
// of a latency cell's four figures and the least steady ones; with so little, 40 latency cells and
// 7 repeats a side leave the averages the level 0.00118, at which the exact distribution still
// lets a change be found though one pair of repeats contradicts it (0.00117).
constexpr double kMinorWeight = 0.02;

double weight_of(const Finding& finding) { return is_headline(finding.figure) ? 1 : kMinorWeight; }

std::vector<double> logarithms(const std::vector<double>& values) {
  std::vector<double> logs;
  logs.reserve(values.size());
  for (const double value : values) logs.push_back(std::log(value));
  return logs;
}

// The distance from the median of its side that half of all values keep.
double spread(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> distances;
  for (const std::vector<double>* side : {&a, &b}) {
    const double middle = median(*side);
    for (const double value : *side) distances.push_back(std::abs(value - middle));
  }
  return median(std::move(distances));
}

std::string missing_reason(const Finding& finding, bool sets) {
  const size_t old_count = finding.old_values.size();
  const size_t new_count = finding.new_values.size();
  if (old_count == 0 || new_count == 0) {
    return std::string("not measured in ") +
           (old_count + new_count == 0 ? "either" : (old_count == 0 ? "old" : "new"));
  }
  const auto positive = [](double value) { return value > 0; };
  if (!std::all_of(finding.old_values.begin(), finding.old_values.end(), positive) ||
      !std::all_of(finding.new_values.begin(), finding.new_values.end(), positive)) {
    return "a value that is not above 0";
  }
  if (!Contrast::enough(old_count, new_count)) {
    return std::string("too few ") + (sets ? "surveys" : "repeats") + " (" +
           std::to_string(old_count) + " and " + std::to_string(new_count) + ')';
  }
  return {};
}

Verdict verdict_of(const Finding& finding) {
  const Interval& change = finding.change;
  const bool larger = change.low > finding.margin;
  const bool smaller = change.high < -finding.margin;
  if (larger || smaller) {
    return larger == larger_is_better(finding.figure) ? Verdict::kBetter : Verdict::kWorse;
  }
  const bool inside = change.low >= -finding.margin && change.high <= finding.margin;
  return inside ? Verdict::kSame : Verdict::kUnclear;
}

struct Test {
  Finding* finding;
  std::vector<double> old_logs;
  std::vector<double> new_logs;
};

}  // namespace

bool is_headline(const std::string& figure) {
  return figure == kAverageNs || figure == kBytesPerSecond;
}

bool larger_is_better(const std::string& figure) { return figure == kBytesPerSecond; }

void judge(std::vector<Finding>& findings, double margin, bool sets) {
  std::vector<Test> tests;
  double weights = 0;
  for (Finding& finding : findings) {
    if (finding.reason.empty()) finding.reason = missing_reason(finding, sets);
    if (!finding.reason.empty()) continue;
    tests.push_back({&finding, logarithms(finding.old_values), logarithms(finding.new_values)});
    weights += weight_of(finding);
  }

  std::vector<Contrast> contrasts;
  std::vector<Hypothesis> family;
  for (const auto& [finding, old_logs, new_logs] : tests) {
    finding->margin = sets ? std::max(margin, spread(old_logs, new_logs)) : margin;
    const double weight = weight_of(*finding);
    // The first level of Holm's steps, which knows nothing of the values; later ones are larger.
    contrasts.emplace_back(old_logs, new_logs, kAlpha * weight / weights);
    const Contrast& contrast = contrasts.back();
    family.push_back({contrast.usable() ? contrast.p_beyond(finding->margin) : 1, weight});
  }

  const std::vector<double> levels = holm_levels(family, kAlpha);
  for (size_t i = 0; i < tests.size(); ++i) {
    Finding& finding = *tests[i].finding;
    if (!contrasts[i].usable()) {
      finding.reason = "no spread to judge by: all values of a side are equal";
      continue;
    }
    finding.level = levels[i];
    finding.exact = contrasts[i].exact();
    finding.change = contrasts[i].interval(levels[i]);
    finding.verdict = verdict_of(finding);
  }
}

}  // namespace velmo
