// What a point of loaded latency costs beside its ramp-up and its chase, by the size of the load's
// regions: flushed before each point (flush 1), or once a target as a sweep has it (flush 0).

#include <benchmark/benchmark.h>
#include <sched.h>

#include "loaded/measure_point.h"
#include "mem/buffer.h"

namespace velmo {
namespace {

constexpr int64_t kChain = 16 << 20;

// Arguments: MiB of a region, flush.
void Point(benchmark::State& state) {
  const int64_t region = state.range(0) << 20;
  const Buffer chain({}, kChain);
  const Buffer load({}, 2 * region);
  PointSpec spec{.latency = {.loads = 1, .cpu = sched_getcpu()},
                 .load = {.flush = state.range(1) != 0},
                 .load_cpus = {sched_getcpu()},
                 .ramp_up = {.window = 0, .most = 0}};
  lay_chain(chain.data(), chain.size(), spec.latency.stride, spec.latency.pattern);
  for (auto _ : state) {
    flush_lines(chain.data(), kChain / spec.latency.stride, spec.latency.stride);
    benchmark::DoNotOptimize(MeasurePoint(chain.data(), {{load.data(), region}}, spec, 1e9));
  }
}

BENCHMARK(Point)
    ->ArgNames({"MiB", "flush"})
    ->ArgsProduct({{64, 512, 4096}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace velmo
