#include "latency/nearest_node.h"

#include "app/threads.h"
#include "latency/lat_worker.h"

namespace velmo {
namespace {

constexpr int32_t kProbeStride = 1024;  // bytes
// No memory is as slow as this, in ns.
constexpr double kWorstLatency = 100000.0;

}  // namespace

int FindNearestNode(const Buffer& probe, const std::vector<ProbingCpu>& from,
                    const std::function<void(const ProbingCpu&)>& begin) {
  LatWorker worker({.stride = kProbeStride});
  worker.SetMem(probe.data(), probe.size());
  double best = kWorstLatency;
  // Where no node measures better: one that has a CPU to run on.
  int nearest = from.front().node;
  for (const ProbingCpu& candidate : from) {
    begin(candidate);
    worker.InitParameter(kRandom, false);
    run_pinned({candidate.cpu}, [&](size_t) {
      worker.Simple();
      check_still_pinned(candidate.cpu);
    });
    if (best <= worker.result_.average) continue;
    best = worker.result_.average;
    nearest = candidate.node;
  }
  return nearest;
}

}  // namespace velmo
