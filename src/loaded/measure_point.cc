#include "loaded/measure_point.h"

#include <thread>

#include "latency/latency_thread.h"

namespace velmo {
namespace {

constexpr double kBytesPerLoad = 64;  // a line

}  // namespace

LoadedPoint MeasurePoint(void* chain, int64_t size, const std::vector<LoadRegions>& regions,
                         const PointSpec& spec, double ticks_per_second) {
  LatWorker worker(spec.latency);
  worker.SetMem(chain, size);
  LoadSpec load = spec.load;
  load.flush = spec.fresh;
  LoadTeam team(load, spec.load_cpus, regions);
  team.Park();
  worker.InitParameter(spec.latency.pattern, true, !spec.fresh);
  LatThread thread(worker, &LatWorker::Burst);
  team.OpenGate();
  std::this_thread::sleep_for(spec.ramp_up);
  for (size_t t = 0; t < team.size(); ++t) team.Sample(t);

  thread.Release();
  thread.Join();
  double bandwidth = kBytesPerLoad * 1e9 / worker.samples_.average;
  for (size_t t = 0; t < team.size(); ++t) bandwidth += team.Sample(t);
  team.Stop();
  worker.Summary(ticks_per_second);
  return {spec.latency.pattern, spec.latency.stride, bandwidth * 1e-6, worker.result_};
}

}  // namespace velmo
