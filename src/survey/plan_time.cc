#include "survey/plan_time.h"

#include <algorithm>

#include "survey/buffer_sizes.h"

namespace velmo {
namespace {

// Figures of a virtual machine of two CPUs of 2023 (Sapphire Rapids), whose memory is slow: others
// take less. Of one CPU, in s a byte: base pages that are touched first, a chain that is laid over
// them; and the release of both, which is one CPU's work.
constexpr double kTouch = 0.42e-9;
constexpr double kLay = 0.19e-9;
constexpr double kRelease = 0.07e-9;
// CPUs beyond which set-up gets no faster.
constexpr size_t kSetUpCpus = 8;
// Beside set-up, in s: a repeat of an idle and a bandwidth cell, a step of the staircase, what a
// curve takes before its points (the first repeat chooses them), and a point.
constexpr double kIdle = 0.25;
constexpr double kMix = 0.25;
constexpr double kStep = 0.05;
constexpr double kCurve = 0.4;
constexpr double kPoint = 0.27;
// A step is walked once before it is measured, at some 150 ns an element.
constexpr double kLap = 150e-9 / kChainStride;

double set_up_seconds(const CellPlan& plan) {
  const auto cpus = static_cast<double>(std::clamp<size_t>(plan.setup_cpus.size(), 1, kSetUpCpus));
  const auto chain = static_cast<double>(plan.chain_bytes);
  double seconds = chain * ((kTouch + kLay) / cpus + kRelease);
  if (!plan.load.empty()) {
    const auto regions = static_cast<double>(regions_touched(plan) * plan.region_bytes);
    seconds += regions * (kTouch + kRelease * static_cast<double>(plan.load.size()));
  }
  return seconds;
}

}  // namespace

double repeat_seconds(const CellPlan& plan) {
  const double set_up = set_up_seconds(plan);
  if (plan.cell.kind == kIdleLatency) return set_up + kIdle;
  if (plan.cell.kind == kBandwidth) return set_up + kMix;
  if (plan.cell.kind == kLoadedLatency) return set_up + kCurve + plan.points * kPoint;
  return set_up + kStep + kLap * static_cast<double>(plan.chain_bytes);
}

double plan_seconds(const std::vector<CellPlan>& plan) {
  double seconds = 0;
  for (const CellPlan& cell : plan) {
    if (cell.cell.state != kFailed) seconds += cell.seconds * cell.most_repeats;
  }
  return seconds;
}

}  // namespace velmo
