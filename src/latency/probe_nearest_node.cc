#include "latency/probe_nearest_node.h"

#include <algorithm>

#include "app/threads.h"
#include "latency/lat_worker.h"
#include "mem/chain.h"

namespace velmo {
namespace {

constexpr int32_t kProbeStride = 1024;  // bytes
// No memory is as slow as this, in ns.
constexpr double kWorstLatency = 100000.0;
// Loads of a measurement, where the probe holds fewer in several laps.
constexpr uint64_t kProbeLoads = 1'000'000;

// A second lap over what the first one brought into the caches would measure these: every lap
// begins with a flush.
double LatencyOfProbe(LatWorker& worker) {
  const auto elements = static_cast<uint64_t>(worker.size_ / worker.spec_.stride);
  double total = 0;  // ns
  uint64_t loads = 0;
  while (loads < kProbeLoads) {
    flush_lines(worker.buf_, elements, worker.spec_.stride);
    worker.Simple();
    const uint64_t lap = std::min<uint64_t>(elements, worker.simple_loads_);
    total += worker.result_.average * static_cast<double>(lap);
    loads += lap;
  }
  return total / static_cast<double>(loads);
}

}  // namespace

int NearestOf(const std::vector<ProbingCpu>& from,
              const std::function<double(const ProbingCpu&)>& measure) {
  double best = kWorstLatency;
  // Where no node measures better: one that has a CPU to run on.
  int nearest = from.front().node;
  for (const ProbingCpu& candidate : from) {
    const double latency = measure(candidate);
    if (best <= latency) continue;
    best = latency;
    nearest = candidate.node;
  }
  return nearest;
}

int FindNearestNode(const Buffer& probe, const std::vector<ProbingCpu>& from,
                    const std::function<void(const ProbingCpu&)>& begin) {
  LatWorker worker({.stride = kProbeStride});
  worker.SetMem(probe.data(), probe.size());
  return NearestOf(from, [&](const ProbingCpu& candidate) {
    begin(candidate);
    worker.InitParameter(kRandom, false);
    double latency = 0;
    run_pinned({candidate.cpu}, [&](size_t) {
      latency = LatencyOfProbe(worker);
      check_still_pinned(candidate.cpu);
    });
    return latency;
  });
}

}  // namespace velmo
