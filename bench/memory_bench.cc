// What stands between the opening banner and the first measured load: map, zero, lay the chain,
// flush. Time per element of the chain; a GiB holds 2^24 elements at a stride of 64 bytes.

#include <benchmark/benchmark.h>

#include "latency/chase.h"
#include "latency/lat_worker.h"
#include "mem/buffer.h"
#include "mem/chain.h"

namespace velmo {
namespace {

void ReportPerElement(benchmark::State& state, long elements) {
  const auto kIsRate = benchmark::Counter::kIsIterationInvariantRate;
  state.counters["per_element"] = benchmark::Counter(
      static_cast<double>(elements),
      static_cast<benchmark::Counter::Flags>(kIsRate | benchmark::Counter::kInvert));
}

// Arguments of the benchmarks below: size in MiB, stride in bytes.
long SizeOf(const benchmark::State& state) { return state.range(0) << 20; }
int StrideOf(const benchmark::State& state) { return static_cast<int>(state.range(1)); }

void MapAndZero(benchmark::State& state) {
  for (auto _ : state) const Buffer buffer({}, SizeOf(state));
  state.SetBytesProcessed(state.iterations() * SizeOf(state));
}

template <int (*make_chain)(void*&, long, int)>
void LayChain(benchmark::State& state) {
  const Buffer buffer({}, SizeOf(state));
  void* data = buffer.data();
  for (auto _ : state) make_chain(data, SizeOf(state), StrideOf(state));
  ReportPerElement(state, SizeOf(state) / StrideOf(state));
}

void Flush(benchmark::State& state) {
  const Buffer buffer({}, SizeOf(state));
  const long lines = SizeOf(state) / StrideOf(state);
  for (auto _ : state) flush_lines(buffer.data(), lines, StrideOf(state));
  ReportPerElement(state, lines);
}

// All of it, as a latency run does it.
void SetUp(benchmark::State& state) {
  LatWorker worker({.stride = StrideOf(state)});
  const auto pattern = static_cast<access_type_t>(state.range(2));
  for (auto _ : state) {
    const Buffer buffer({}, SizeOf(state));
    worker.SetMem(buffer.data(), buffer.size());
    worker.InitParameter(pattern, false);
  }
}

// A random chase two ways: the average that Burst reports and Simple over the same chain.
void ChaseRandom(benchmark::State& state) {
  const Buffer buffer({}, SizeOf(state));
  lay_chain(buffer.data(), SizeOf(state), StrideOf(state), kRandom);
  constexpr long kSteps = 1'000'000;
  const void* p = buffer.data();
  for (auto _ : state) p = Chase(p, kSteps);
  ReadChunk(p, 1);
  ReportPerElement(state, kSteps);
}

void SampleRandom(benchmark::State& state) {
  const Buffer buffer({}, SizeOf(state));
  lay_chain(buffer.data(), SizeOf(state), StrideOf(state), kRandom);
  constexpr long kSteps = 1'000'000;
  std::vector<int64_t> hist(kMaxCycles + 1);
  const void* p = buffer.data();
  for (auto _ : state) p = Sample(p, kSteps, hist.data());
  ReadChunk(p, 1);
  ReportPerElement(state, kSteps);
}

constexpr int64_t kSizes[] = {1024};
constexpr int64_t kStrides[] = {64, 256, 4096};

void SizeAndStride(benchmark::internal::Benchmark* bench) {
  for (const int64_t size : kSizes) {
    for (const int64_t stride : kStrides) bench->Args({size, stride});
  }
  bench->ArgNames({"MiB", "stride"})->Unit(benchmark::kMillisecond);
}

BENCHMARK(MapAndZero)->ArgNames({"MiB"})->Arg(1024)->Unit(benchmark::kMillisecond);
BENCHMARK(LayChain<make_seq_chain>)->Apply(SizeAndStride);
BENCHMARK(LayChain<make_rnd_chain>)->Apply(SizeAndStride);
BENCHMARK(Flush)->Apply(SizeAndStride);
BENCHMARK(SetUp)
    ->ArgNames({"MiB", "stride", "random"})
    ->ArgsProduct({{1024}, {64, 4096}, {kSequential, kRandom}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ChaseRandom)
    ->ArgNames({"MiB", "stride"})
    ->Args({256, 256})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SampleRandom)
    ->ArgNames({"MiB", "stride"})
    ->Args({256, 256})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmo
