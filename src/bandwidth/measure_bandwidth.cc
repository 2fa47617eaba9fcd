#include "bandwidth/measure_bandwidth.h"

#include <immintrin.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <thread>

#include "app/clock.h"

namespace velmo {
namespace {

constexpr double kBytesPerMb = 1e6;
constexpr size_t kReserved = 1 << 16;  // "-i 2147483643" means "until I end it", not 16 GiB

// Busy-waits: the main thread's CPU stays awake and the interval is exact. It leaves the core to
// its other hyper-thread as far as it can, which may be one of the load.
void wait_busily(double seconds) {
  const long end = monotonic_ns() + static_cast<long>(seconds * 1e9);
  while (monotonic_ns() < end) _mm_pause();
}

}  // namespace

BandwidthResult MeasureBandwidth(LoadTeam& team, const BandwidthSpec& spec,
                                 const BandwidthObserver& observe) {
  BandwidthResult result;
  result.threads.resize(team.size());
  result.seconds.reserve(std::min(static_cast<size_t>(spec.intervals), kReserved));
  team.OpenGate();
  for (int i = 1 - spec.warm_up; i <= spec.intervals; ++i) {
    if (i == 1 && spec.stretch.begin) {
      spec.stretch.begin(team.threads());
      for (size_t t = 0; t < team.size(); ++t) team.Sample(t);
    }
    if (spec.busy) {
      wait_busily(spec.interval);
    } else {
      std::this_thread::sleep_for(std::chrono::duration<double>(spec.interval));
    }
    double sum = 0;
    for (size_t t = 0; t < team.size(); ++t) {
      const double bandwidth = team.Sample(t) / kBytesPerMb;
      sum += bandwidth;
      if (i >= 1) result.threads[t] += bandwidth / spec.intervals;
    }
    if (i < 1) continue;
    result.seconds.push_back(sum);
    if (observe) observe(i, sum);
  }
  if (spec.stretch.end) spec.stretch.end();
  team.Stop();
  const double total = std::accumulate(result.seconds.begin(), result.seconds.end(), 0.0);
  result.average = total / static_cast<double>(result.seconds.size());
  const auto [lowest, highest] = std::minmax_element(result.seconds.begin(), result.seconds.end());
  result.minimum = *lowest;
  result.maximum = *highest;
  return result;
}

BandwidthResult MeasurePasses(LoadTeam& team, const BandwidthObserver& observe) {
  BandwidthResult result;
  team.OpenGate();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  for (size_t t = 0; t < team.size(); ++t) {
    result.threads.push_back(team.Join(t));
    if (observe) observe(team.cpu(t), result.threads.back());
  }
  result.average = std::accumulate(result.threads.begin(), result.threads.end(), 0.0);
  return result;
}

}  // namespace velmo
