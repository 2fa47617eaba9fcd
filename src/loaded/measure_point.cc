#include "loaded/measure_point.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "app/threads.h"

namespace velmo {
namespace {

constexpr double kBytesPerLoad = 64;  // a line

// Bytes per second of the whole team since its last sample.
double SampleAll(LoadTeam& team) {
  double sum = 0;
  for (size_t t = 0; t < team.size(); ++t) sum += team.Sample(t);
  return sum;
}

void AwaitSteadyLoad(LoadTeam& team, const RampUp& ramp_up) {
  std::array<double, 3> windows{};
  double passed = 0;
  do {
    std::this_thread::sleep_for(std::chrono::duration<double>(ramp_up.window));
    passed += ramp_up.window;
    std::rotate(windows.begin(), windows.begin() + 1, windows.end());
    windows.back() = SampleAll(team);
    if (ramp_up.agreement == 0) return;
    const auto [low, high] = std::minmax_element(windows.begin(), windows.end());
    if (*low > 0 && *high - *low <= ramp_up.agreement * *high) return;
  } while (passed < ramp_up.most);
}

}  // namespace

LoadedPoint MeasurePoint(const void* chain, const std::vector<LoadRegions>& regions,
                         const PointSpec& spec, double ticks_per_second) {
  LoadedPoint point{.pattern = spec.latency.pattern, .stride = spec.latency.stride};
  LoadTeam team(spec.load, spec.load_cpus, regions);
  team.Park();
  Gate pinned;
  Gate gate;
  double load = 0;  // bytes per second
  std::thread measuring = start_thread([&] {
    // A thread that is pinned asleep is moved when it wakes, which must not be in the stretch.
    pinned.Wait();
    point.samples = PrepareSamples(spec.latency);
    gate.Wait();
    // Nobody has to wake for the ends of the stretch: on busy CPUs that takes as long as the chase.
    if (spec.stretch.begin) {
      std::vector<WatchedThread> threads = team.threads();
      threads.push_back({gettid(), spec.latency.cpu});
      spec.stretch.begin(threads);
    }
    SampleAll(team);
    MeasureLatency(chain, spec.latency, point.samples);
    load = SampleAll(team);
    if (spec.stretch.end) spec.stretch.end();
  });
  set_thread_affinity(&measuring, spec.latency.cpu);
  pinned.Open();
  team.OpenGate();
  AwaitSteadyLoad(team, spec.ramp_up);
  gate.Open();
  measuring.join();
  team.Stop();
  point.bandwidth = (load + kBytesPerLoad * 1e9 / point.samples.average) * 1e-6;
  point.latency = Summarize(point.samples, ticks_per_second);
  return point;
}

}  // namespace velmo
