#include "survey/curve.h"

#include <algorithm>
#include <map>
#include <utility>

namespace velmo {
namespace {

// The repeats of all points that were measured together, by rising load.
using Pass = std::vector<const Repeat*>;

// A round that was measured once more has two repeats a point: the first ones make one pass, the
// second ones another.
std::vector<Pass> complete_passes(const Cell& cell) {
  std::vector<const Point*> points;
  for (const Point& point : cell.points) points.push_back(&point);
  std::sort(points.begin(), points.end(),
            [](const Point* a, const Point* b) { return a->delay > b->delay; });

  std::map<std::pair<int, int>, Pass> passes;  // by round and its measurements before
  for (const Point* point : points) {
    std::map<int, int> seen;
    for (const Repeat& repeat : point->repeats) {
      const int again = seen[repeat.round]++;
      if (repeat.figures.contains(kBytesPerSecond)) {
        passes[{repeat.round, again}].push_back(&repeat);
      }
    }
  }
  std::vector<Pass> complete;
  for (auto& [round, pass] : passes) {
    if (pass.size() == points.size()) complete.push_back(std::move(pass));
  }
  return complete;
}

double bandwidth_of(const Repeat* repeat) { return repeat->figures.at(kBytesPerSecond); }

Repeat between(const Repeat& low, const Repeat& high, double bytes_per_second) {
  Repeat result;
  result.round = low.round;
  const double share =
      (bytes_per_second - bandwidth_of(&low)) / (bandwidth_of(&high) - bandwidth_of(&low));
  for (const auto& [name, value] : low.figures) {
    const auto other = high.figures.find(name);
    if (other == high.figures.end() || name == kBytesPerSecond) continue;
    result.figures[name] = value + share * (other->second - value);
  }
  result.disturbed_by = low.disturbed_by;
  result.disturbed_by.insert(result.disturbed_by.end(), high.disturbed_by.begin(),
                             high.disturbed_by.end());
  return result;
}

}  // namespace

std::vector<Repeat> curve_peaks(const Cell& cell) {
  std::vector<Repeat> peaks;
  for (const Pass& pass : complete_passes(cell)) {
    const Repeat* peak = *std::max_element(
        pass.begin(), pass.end(),
        [](const Repeat* a, const Repeat* b) { return bandwidth_of(a) < bandwidth_of(b); });
    Repeat repeat;
    repeat.round = peak->round;
    repeat.figures[kBytesPerSecond] = bandwidth_of(peak);
    repeat.disturbed_by = peak->disturbed_by;
    peaks.push_back(std::move(repeat));
  }
  return peaks;
}

std::vector<Repeat> curve_latencies(const Cell& cell, double bytes_per_second) {
  std::vector<Repeat> latencies;
  for (const Pass& pass : complete_passes(cell)) {
    const auto above = std::find_if(pass.begin(), pass.end(), [&](const Repeat* repeat) {
      return bandwidth_of(repeat) > bytes_per_second;
    });
    const bool crosses = above != pass.begin() && above != pass.end();
    latencies.push_back(crosses ? between(**(above - 1), **above, bytes_per_second) : Repeat{});
  }
  return latencies;
}

}  // namespace velmo
