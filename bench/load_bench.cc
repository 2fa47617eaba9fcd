// The load kernels over a region far larger than the caches, in bytes of memory traffic a second.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "bandwidth/load_worker.h"
#include "mem/mapping.h"

namespace velmo {
namespace {

constexpr long kRegion = 1L << 30;

// Two regions, to read and to write, as a load worker has them.
class Regions {
 public:
  Regions() {
    mmap_numa(buf_, 2 * kRegion, 0, true);
    std::memset(buf_, 0, 2 * kRegion);
  }
  ~Regions() { munmap_numa(buf_, 2 * kRegion); }
  Regions(const Regions&) = delete;
  Regions& operator=(const Regions&) = delete;
  char* read() const { return static_cast<char*>(buf_); }
  char* write() const { return read() + kRegion; }

 private:
  void* buf_ = nullptr;
};

// Arguments: read, write, stream, full.
void Load(benchmark::State& state) {
  static const Regions regions;
  const Mix mix{static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)),
                static_cast<int32_t>(state.range(2))};
  const LoadPlan plan(mix, state.range(3) != 0, kBlocksPerPass);
  const long passes = kRegion / std::max(plan.read_step, plan.write_step);
  for (auto _ : state) {
    for (long pass = 0; pass < passes; ++pass) {
      void* src = regions.read() + pass * plan.read_step;
      void* dst = regions.write() + pass * plan.write_step;
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
