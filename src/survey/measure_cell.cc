#include "survey/measure_cell.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "app/clock.h"
#include "app/spinners.h"
#include "app/threads.h"
#include "bandwidth/measure_bandwidth.h"
#include "latency/summarize.h"
#include "loaded/measure_point.h"
#include "mem/mapping.h"
#include "platform/placement.h"
#include "survey/loaded_delays.h"
#include "survey/record_json.h"
#include "survey/watch_json.h"

namespace velmo {
namespace {

constexpr double kBytesPerMb = 1e6;

// Loads of an idle measurement: to warm up, timed as a whole, and timed one by one.
constexpr uint64_t kWarmUp = 200'000;
constexpr uint64_t kLoads = 1'000'000;
constexpr uint64_t kSamples = 100'000;
// Of a point under load, which is slower.
constexpr uint64_t kLoadedWarmUp = 10'000;
constexpr uint64_t kLoadedLoads = 100'000;
constexpr uint64_t kLoadedSamples = 40'000;
// Of a step of the staircase, in ns: the least, and the time of a lap that is not measured whole.
constexpr double kStepNs = 25e6;
constexpr double kLongLapNs = 150e6;
// Until a load is steady, in s. It is so within 0.05 s; where windows do not agree in 0.3 s, the
// host moves them, not the load's start.
constexpr RampUp kRampUp{.window = 0.02, .agreement = 0.01, .most = 0.3};

int64_t mapped_bytes(int64_t size, PageSize pages) {
  const int64_t unit = pages == PageSize::k1G ? int64_t{1} << 30 : int64_t{2} << 20;
  return pages == PageSize::k4K ? size : (size + unit - 1) / unit * unit;
}

Json placement_json(const Placement& placement) {
  if (!placement.reason.empty()) return {{"value", nullptr}, {"reason", placement.reason}};
  return {{"pages_asked", placement.asked},
          {"pages_on_node", placement.on_node},
          {"share_on_node", placement.share()},
          {"page_size_bytes", placement.page_size_bytes}};
}

// A chain of the plan's size in memory of its own.
class Chain {
 public:
  explicit Chain(const CellPlan& plan)
      : buffer_(plan.memory, mapped_bytes(plan.chain_bytes, plan.pages),
                {.pages = plan.pages, .zero = false}),
        bytes_(plan.chain_bytes) {
    const std::vector<int> own = {plan.latency_cpu};
    lay_rnd_chain_on(plan.setup_cpus.empty() ? own : plan.setup_cpus, buffer_.data(), bytes_,
                     kChainStride);
  }

  const void* data() const { return buffer_.data(); }
  uint64_t elements() const { return static_cast<uint64_t>(bytes_ / kChainStride); }
  Placement Where(int node) const { return find_placement(buffer_.data(), bytes_, node); }

 private:
  Buffer buffer_;
  int64_t bytes_;
};

std::optional<ClockReference> first_clock(const CellPlan& plan, int64_t delay) {
  const auto found = plan.first_clocks.find(delay);
  if (found == plan.first_clocks.end()) return std::nullopt;
  return found->second;
}

// Watches one stretch after the other.
class Watcher {
 public:
  Watcher(const CellPlan& plan, const Spinners& spinners) {
    for (const auto& [tid, cpu] : spinners.threads()) spinning_.push_back({tid, cpu});
    if (plan.sampling_cpu >= 0) helpers_.push_back(plan.sampling_cpu);
    if (plan.memory.node >= 0) nodes_.push_back(plan.memory.node);
    for (const LoadSeat& seat : plan.load) {
      const int node = seat.memory.node;
      if (node >= 0 && std::ranges::find(nodes_, node) == nodes_.end()) nodes_.push_back(node);
    }
  }

  void Begin(const std::vector<WatchedThread>& threads) {
    watch_.Start(
        {.threads = threads, .helper_cpus = helpers_, .nodes = nodes_, .spinning = spinning_});
  }
  void End() { record_ = watch_.Stop(); }
  StretchObserver Observer() {
    return {[this](const auto& threads) { Begin(threads); }, [this] { End(); }};
  }

  // What was watched last, into `repeat`; its clock is held against that of the first repeat.
  void Put(Repeat& repeat, const std::optional<ClockReference>& first) const {
    put_watch(repeat, record_, first);
  }

 private:
  Watch watch_;
  std::vector<int> helpers_;
  std::vector<int> nodes_;
  std::vector<WatchedThread> spinning_;
  WatchRecord record_;
};

void add_samples(const LatencySamples& from, const LatencyResult& result, double ticks,
                 Samples& to) {
  for (size_t c = 0; c < from.histogram.size(); ++c) {
    if (from.histogram[c] == 0) continue;
    const double ns = cycles_to_ns(static_cast<double>(c), ticks) - result.overhead;
    to[std::max<int64_t>(std::lround(ns * 10), 0)] += from.histogram[c];
  }
}

void set_latency(const LatencySamples& samples, const LatencyResult& result, double ticks,
                 Figures& figures) {
  figures[kAverageNs] = result.average;
  if (result.samples == 0) return;
  const std::pair<const char*, double> percentiles[] = {
      {kMedianNs, 0.5}, {kP99Ns, 0.99}, {kP999Ns, 0.999}};
  for (const auto& [name, fraction] : percentiles) {
    if (name == kP999Ns && result.samples < static_cast<uint64_t>(kTailSamples)) continue;
    const double ns = percentile_ns(samples, result, ticks, fraction);
    if (ns > 0) figures[name] = ns;  // else the timing took longer than the load
  }
}

MeasuredRepeat MeasureIdle(const CellPlan& plan, Watcher& watcher, double ticks) {
  const Chain chain(plan);
  const LatencySpec spec{
      .warm_up = kWarmUp, .loads = kLoads, .samples = kSamples, .cpu = plan.latency_cpu};
  MeasuredRepeat measured;
  LatencySamples samples;
  run_pinned({plan.latency_cpu}, [&](size_t) {
    samples = PrepareSamples(spec);
    watcher.Begin({{gettid(), plan.latency_cpu}});
    const long start = monotonic_ns();
    MeasureLatency(chain.data(), spec, samples);
    measured.repeat.seconds = seconds_since(start);
    watcher.End();
  });
  watcher.Put(measured.repeat, first_clock(plan, 0));
  const LatencyResult result = Summarize(samples, ticks);
  set_latency(samples, result, ticks, measured.repeat.figures);
  add_samples(samples, result, ticks, measured.samples);
  measured.repeat.placement = placement_json(chain.Where(plan.memory.node));
  return measured;
}

MeasuredRepeat MeasureStep(const CellPlan& plan, Watcher& watcher) {
  const Chain chain(plan);
  // One lap brings into the caches what they hold, others tell how many more take long enough to be
  // watched, so that every load counts as often as any other. Of a long lap a part is enough: its
  // loads are as far from their last use as those of the rest.
  const auto lap = static_cast<double>(chain.elements());
  MeasuredRepeat measured;
  run_pinned({plan.latency_cpu}, [&](size_t) {
    double load_ns = MeasureAverage(chain.data(), chain.elements());
    if (lap * load_ns < kLongLapNs) {
      load_ns = MeasureAverage(chain.data(), std::max(chain.elements(), kWarmUp));
    }
    const double laps = std::max(std::ceil(kStepNs / (lap * load_ns)), 1.0);
    const LatencySpec spec{
        .loads = static_cast<uint64_t>(std::min(laps * lap, kLongLapNs / load_ns)),
        .cpu = plan.latency_cpu};
    watcher.Begin({{gettid(), plan.latency_cpu}});
    const long start = monotonic_ns();
    measured.repeat.figures[kAverageNs] = MeasureLatency(chain.data(), spec).average;
    measured.repeat.seconds = seconds_since(start);
    watcher.End();
  });
  watcher.Put(measured.repeat, first_clock(plan, 0));
  measured.repeat.placement = placement_json(chain.Where(plan.memory.node));
  return measured;
}

// The regions of a load: of each thread, both behind one another in a buffer of its own.
class Regions {
 public:
  explicit Regions(const CellPlan& plan) : bytes_(plan.region_bytes) {
    const LoadPlan load(plan.mix, true, kBlocksPerPass);
    buffers_.resize(plan.load.size());
    std::vector<int> cpus;
    for (const LoadSeat& seat : plan.load) cpus.push_back(seat.cpu);
    run_pinned(cpus, [&](size_t i) {
      buffers_[i] = Buffer(plan.load[i].memory, 2 * bytes_, {.pages = plan.pages, .zero = false});
      // What is only read has to be there, too: pages that nobody wrote are all the same one.
      if (load.read_step > 0) touch_pages(buffers_[i].data(), bytes_);
      if (load.write_step > 0) touch_pages(buffers_[i].bytes() + bytes_, bytes_);
    });
    if (load.read_step > 0) begins_.push_back(0);
    if (load.write_step > 0) begins_.push_back(bytes_);
    for (const LoadSeat& seat : plan.load) nodes_.push_back(seat.memory.node);
  }

  std::vector<LoadRegions> Get() const {
    std::vector<LoadRegions> regions;
    for (const Buffer& buffer : buffers_) regions.push_back({buffer.data(), bytes_});
    return regions;
  }

  // Of all regions together; the size of the pages is that of the first.
  Placement Where() const {
    Placement all;
    for (size_t i = 0; i < buffers_.size(); ++i) {
      for (const int64_t begin : begins_) {
        const bool first = i == 0 && begin == begins_.front();
        Placement one = find_placement(buffers_[i].bytes() + begin, bytes_, nodes_[i], first);
        if (!one.reason.empty()) return one;
        all.Add(one);
        if (first) all.page_size_bytes = one.page_size_bytes;
      }
    }
    return all;
  }

 private:
  int64_t bytes_;
  std::vector<int64_t> begins_;  // of the regions that are touched, in a buffer
  std::vector<Buffer> buffers_;
  std::vector<int> nodes_;
};

// Nothing is flushed: the load moves more than the caches hold before it is measured.
LoadSpec LoadOf(const CellPlan& plan) {
  return {.mix = plan.mix,
          .full = true,
          .stride = kLineBytes,
          .flush = false,
          .delay_every_unit = true};
}

std::vector<int> LoadCpus(const CellPlan& plan) {
  std::vector<int> cpus;
  for (const LoadSeat& seat : plan.load) cpus.push_back(seat.cpu);
  return cpus;
}

MeasuredRepeat MeasureMix(const CellPlan& plan, Watcher& watcher) {
  const Regions regions(plan);
  MeasuredRepeat measured;
  measured.repeat.placement = placement_json(regions.Where());
  if (plan.sampling_cpu >= 0) set_cpu_affinity(plan.sampling_cpu);
  LoadTeam team(LoadOf(plan), LoadCpus(plan), regions.Get());
  team.Park();
  BandwidthSpec spec{.intervals = 4, .warm_up = 1, .interval = 0.05};
  spec.busy = plan.sampling_cpu >= 0;
  // Without a CPU of its own every sample is taken in the time of a load thread.
  if (!spec.busy) spec = {.intervals = 1, .warm_up = 1, .interval = 0.25, .busy = false};
  spec.stretch = watcher.Observer();
  const BandwidthResult result = MeasureBandwidth(team, spec);
  measured.repeat.figures[kBytesPerSecond] = result.average * kBytesPerMb;
  measured.repeat.seconds = spec.intervals * spec.interval;
  watcher.Put(measured.repeat, first_clock(plan, 0));
  return measured;
}

MeasuredRepeat MeasureCurve(const CellPlan& plan, Watcher& watcher, double ticks) {
  const Chain chain(plan);
  const Regions regions(plan);
  PointSpec spec{.latency = {.warm_up = kLoadedWarmUp,
                             .loads = kLoadedLoads,
                             .samples = kLoadedSamples,
                             .cpu = plan.latency_cpu},
                 .load = LoadOf(plan),
                 .load_cpus = LoadCpus(plan),
                 .ramp_up = kRampUp};
  MeasuredRepeat measured;
  spec.stretch = watcher.Observer();
  Placement placement = chain.Where(plan.memory.node);
  placement.Add(regions.Where());
  measured.repeat.placement = placement_json(placement);
  std::vector<int64_t> delays = plan.delays;
  if (delays.empty()) {
    delays = choose_delays(
        [&](int64_t delay) {
          LoadSpec load = spec.load;
          load.delay = static_cast<uint32_t>(delay);
          return probe_load(load, spec.load_cpus, regions.Get());
        },
        plan.points);
  }
  const auto lines = static_cast<uint64_t>(plan.chain_bytes / kChainStride);
  for (const int64_t delay : delays) {
    spec.load.delay = static_cast<uint32_t>(delay);
    flush_lines(chain.data(), lines, kChainStride);
    const long start = monotonic_ns();
    const LoadedPoint loaded = MeasurePoint(chain.data(), regions.Get(), spec, ticks);
    MeasuredPoint& point = measured.points.emplace_back();
    point.delay = delay;
    point.repeat.seconds = seconds_since(start);
    set_latency(loaded.samples, loaded.latency, ticks, point.repeat.figures);
    point.repeat.figures[kBytesPerSecond] = loaded.bandwidth * kBytesPerMb;
    add_samples(loaded.samples, loaded.latency, ticks, point.samples);
    watcher.Put(point.repeat, first_clock(plan, delay));
    measured.repeat.seconds += point.repeat.seconds;
  }
  return measured;
}

Json samples_json(const Samples& samples) {
  Json json = Json::array();
  for (const auto& [length, count] : samples) json.push_back({length, count});
  return json;
}

Samples samples_from_json(const Json& json) {
  Samples samples;
  for (const Json& entry : json) samples[entry.at(0).get<int64_t>()] = entry.at(1).get<int64_t>();
  return samples;
}

}  // namespace

MeasuredRepeat measure_cell(const CellPlan& plan, double ticks_per_second) {
  Spinners spinners;
  for (const int cpu : plan.awake_cpus) spinners.Start(cpu);
  Watcher watcher(plan, spinners);
  if (plan.cell.kind == kIdleLatency) return MeasureIdle(plan, watcher, ticks_per_second);
  if (plan.cell.kind == kLatencyBySize) return MeasureStep(plan, watcher);
  if (plan.cell.kind == kBandwidth) return MeasureMix(plan, watcher);
  return MeasureCurve(plan, watcher, ticks_per_second);
}

Json to_json(const MeasuredRepeat& measured) {
  Json json = {{"repeat", to_json(measured.repeat)},
               {"samples", samples_json(measured.samples)},
               {"points", Json::array()}};
  for (const MeasuredPoint& point : measured.points) {
    json["points"].push_back({{"delay", point.delay},
                              {"repeat", to_json(point.repeat)},
                              {"samples", samples_json(point.samples)}});
  }
  return json;
}

MeasuredRepeat measured_from_json(const Json& json) {
  MeasuredRepeat measured;
  measured.repeat = repeat_from_json(json.at("repeat"));
  measured.samples = samples_from_json(json.at("samples"));
  for (const Json& point : json.at("points")) {
    measured.points.push_back({point.at("delay").get<int64_t>(),
                               repeat_from_json(point.at("repeat")),
                               samples_from_json(point.at("samples"))});
  }
  return measured;
}

double percentile_ns(const Samples& samples, double fraction) {
  int64_t total = 0;
  for (const auto& [length, count] : samples) total += count;
  const double rank = fraction * static_cast<double>(total);
  double below = 0;
  for (const auto& [length, count] : samples) {
    if (below + static_cast<double>(count) >= rank) return static_cast<double>(length) / 10;
    below += static_cast<double>(count);
  }
  return 0;
}

}  // namespace velmo
