// What it costs to watch a repeat, both readings together, by the number of threads.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <vector>

#include "platform/watch.h"

namespace velmo {
namespace {

void WatchedRepeat(benchmark::State& state) {
  const std::vector<WatchedThread> threads(static_cast<size_t>(state.range(0)), {gettid(), 0});
  for (auto _ : state) {
    Watch watch;
    watch.Start({threads, {}, {0}});
    benchmark::DoNotOptimize(watch.Stop());
  }
}

BENCHMARK(WatchedRepeat)->Arg(1)->Arg(2)->Arg(64)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace velmo
