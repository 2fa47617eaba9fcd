#include "latency/measure_latency.h"

#include "app/clock.h"
#include "app/threads.h"
#include "latency/chase.h"

namespace velmo {
namespace {

// Real length of the delay, in ns.
double CalibrateDelay(const LatencySpec& spec) {
  const long start = monotonic_ns();
  Delay(spec.delay_ns, spec.calibration);
  return static_cast<double>(monotonic_ns() - start) / static_cast<double>(spec.calibration);
}

}  // namespace

LatencySamples MeasureLatency(const void* chain, const LatencySpec& spec) {
  LatencySamples result = PrepareSamples(spec);
  MeasureLatency(chain, spec, result);
  return result;
}

LatencySamples PrepareSamples(const LatencySpec& spec) {
  LatencySamples samples;
  if (spec.samples > 0) samples.histogram.resize(kMaxCycles + 1);
  return samples;
}

void MeasureLatency(const void* chain, const LatencySpec& spec, LatencySamples& result) {
  const bool delayed = spec.delay_ns > 0;

  const void* p = Chase(chain, spec.warm_up);
  ReadChunk(p, spec.chunk);
  if (delayed) result.real_delay = CalibrateDelay(spec);

  long start = monotonic_ns();
  p = delayed ? ChaseDelayed(p, spec.loads, spec.delay_ns) : Chase(p, spec.loads);
  result.plain_ns = monotonic_ns() - start;
  ReadChunk(p, spec.chunk);
  result.average =
      static_cast<double>(result.plain_ns) / static_cast<double>(spec.loads) - result.real_delay;

  start = monotonic_ns();
  p = delayed ? SampleDelayed(p, spec.samples, spec.delay_ns, result.histogram.data())
              : Sample(p, spec.samples, result.histogram.data());
  ReadChunk(p, spec.chunk);
  result.sampled_ns = monotonic_ns() - start;
  if (spec.cpu >= 0) check_still_pinned(spec.cpu);
}

double MeasureAverage(const void* chain, uint64_t loads) {
  const long start = monotonic_ns();
  const void* p = Chase(chain, loads);
  const long end = monotonic_ns();
  ReadChunk(p, 1);
  return static_cast<double>(end - start) / static_cast<double>(loads);
}

}  // namespace velmo
