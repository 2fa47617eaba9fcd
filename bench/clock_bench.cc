// What reading the clocks and the time-stamp counter costs.

#include <benchmark/benchmark.h>

#include <chrono>

#include "app/clock.h"
#include "app/tsc.h"

namespace velmo {
namespace {

void MonotonicClock(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(monotonic_ns());
}

void SystemClock(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(std::chrono::system_clock::now());
}

template <void (*read)(long&)>
void Counter(benchmark::State& state) {
  long count = 0;
  for (auto _ : state) {
    read(count);
    benchmark::DoNotOptimize(count);
  }
}

BENCHMARK(MonotonicClock);
BENCHMARK(SystemClock);
BENCHMARK(Counter<rdtsc>);
BENCHMARK(Counter<rdtscp>);

}  // namespace
}  // namespace velmo
