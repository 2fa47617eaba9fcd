#include "latency/summarize.h"

#include <algorithm>

namespace velmo {
namespace {

void SetPercentiles(const LatencySamples& samples, double ticks_per_second, LatencyResult& result) {
  const auto count = static_cast<double>(result.samples);
  struct Percentile {
    uint32_t& value;
    uint64_t threshold;
  };
  const Percentile percentiles[] = {
      {result.p0_1, static_cast<uint64_t>(count * 0.001)},
      {result.p1, static_cast<uint64_t>(count * 0.01)},
      {result.median, result.samples / 2},
      {result.p99, static_cast<uint64_t>(count * 0.99)},
      {result.p99_9, static_cast<uint64_t>(count * 0.999)},
  };
  uint64_t running = 0;
  for (size_t c = 0; c < samples.histogram.size(); ++c) {
    running += static_cast<uint64_t>(samples.histogram[c]);
    for (const Percentile& p : percentiles) {
      // A bin below 1 ns leaves the value at 0, so the next bin above the threshold gives it.
      if (p.value == 0 && running > p.threshold) {
        p.value = static_cast<uint32_t>(cycles_to_ns(static_cast<double>(c), ticks_per_second));
      }
    }
  }
  for (uint32_t* value : {&result.median, &result.p99, &result.p99_9}) {
    // Below 0 when a few long samples raise the mean above the value; the values are unsigned.
    *value = static_cast<uint32_t>(std::max(*value - result.overhead, 0.0));
  }
}

}  // namespace

double cycles_to_ns(double cycles, double ticks_per_second) {
  return cycles * 1e9 / ticks_per_second;
}

double percentile_ns(const LatencySamples& samples, const LatencyResult& result,
                     double ticks_per_second, double fraction) {
  const double rank = fraction * static_cast<double>(result.samples);
  double below = 0;
  for (size_t c = 0; c < samples.histogram.size(); ++c) {
    const auto count = static_cast<double>(samples.histogram[c]);
    if (count == 0 || below + count < rank) {
      below += count;
      continue;
    }
    const double cycles = static_cast<double>(c) + (rank - below) / count - 0.5;
    return std::max(cycles_to_ns(cycles, ticks_per_second) - result.overhead, 0.0);
  }
  return 0;
}

LatencyResult Summarize(const LatencySamples& samples, double ticks_per_second) {
  LatencyResult result{.average = samples.average};
  double total = 0.0;
  for (size_t c = 0; c < samples.histogram.size(); ++c) {
    const int64_t count = samples.histogram[c];
    if (count == 0) continue;
    result.samples += count;
    total += static_cast<double>(count) * cycles_to_ns(static_cast<double>(c), ticks_per_second);
  }
  if (result.samples == 0) return result;
  result.overhead = total / static_cast<double>(result.samples) - result.average;
  SetPercentiles(samples, ticks_per_second, result);
  return result;
}

}  // namespace velmo
