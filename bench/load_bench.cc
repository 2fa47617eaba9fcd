// The load kernels over a region far larger than the caches, in bytes of memory traffic a second.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "bandwidth/load_plan.h"
#include "mem/buffer.h"

namespace velmo {
namespace {

constexpr long kRegion = 1L << 30;

// Arguments: read, write, stream, full.
void Load(benchmark::State& state) {
  static const Buffer regions({}, 2 * kRegion);  // to read and to write
  const Mix mix{static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)),
                static_cast<int32_t>(state.range(2))};
  const LoadPlan plan(mix, state.range(3) != 0, kBlocksPerPass);
  const long passes = kRegion / std::max(plan.read_step, plan.write_step);
  for (auto _ : state) {
    for (long pass = 0; pass < passes; ++pass) {
      void* src = regions.bytes() + pass * plan.read_step;
      void* dst = regions.bytes() + kRegion + pass * plan.write_step;
      if (plan.kernel != nullptr) {
        plan.kernel(src, dst, kBlocksPerPass, 0);
      } else {
        generic_pass(plan.shape, src, dst, kBlocksPerPass, plan.write_lines, 0);
      }
    }
  }
  state.SetBytesProcessed(state.iterations() * passes * plan.pass_bytes);
}

BENCHMARK(Load)
    ->ArgNames({"read", "write", "stream", "full"})
    ->Args({1, 0, 0, 0})
    ->Args({1, 0, 0, 1})
    ->Args({1, 1, 0, 0})
    ->Args({2, 1, 0, 0})
    ->Args({3, 1, 0, 0})
    ->Args({0, 1, 1, 0})
    ->Args({2, 1, 1, 0})
    ->Args({1, 1, 1, 0})
    ->Args({3, 1, 1, 0})
    ->Args({2, 1, 0, 1})
    ->Args({5, 3, 0, 0})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmo
