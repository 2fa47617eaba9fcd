#include "survey/runner.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>

#include "app/clock.h"
#include "survey/plan_time.h"
#include "survey/repeats.h"
#include "survey/usable_memory.h"
#include "survey/watch_json.h"

namespace velmo {
namespace {

// A cell is given up after this many repeats that failed.
constexpr int kMostFailures = 2;
// Repeats of a cell in place of disturbed ones.
constexpr int kMostExtra = 2;
// A repeat that takes this many times what was expected, and some seconds, hangs.
constexpr double kHangFactor = 10;
constexpr double kHangSeconds = 20;
// Less of the pages of a buffer on their node is told.
constexpr double kLeastPlaced = 0.99;

bool is_clean(const Repeat& repeat) { return !repeat.failed() && repeat.disturbed_by.empty(); }

// At least half as many clean repeats as did not fail: then they alone count (counted_repeats).
bool mostly_clean(const std::vector<Repeat>& repeats) {
  const auto good = std::ranges::count_if(repeats, [](const Repeat& r) { return !r.failed(); });
  return 2 * std::ranges::count_if(repeats, is_clean) >= good;
}

void mark(Cell& cell, const char* name) {
  if (std::ranges::find(cell.marks, name) == cell.marks.end()) cell.marks.emplace_back(name);
}

}  // namespace

Runner::Runner(std::vector<CellPlan> plan, const RunnerSettings& settings, Measure measure,
               Observer observe)
    : settings_(settings),
      measure_(std::move(measure)),
      observe_(std::move(observe)),
      start_(monotonic_ns()) {
  for (CellPlan& cell : plan) cells_.push_back({.plan = std::move(cell)});
}

void Runner::Run() {
  start_ = monotonic_ns();
  std::mt19937_64 generator(settings_.seed);
  for (int round = 1;; ++round) {
    std::vector<size_t> order;
    for (size_t i = 0; i < cells_.size(); ++i) {
      if (!cells_[i].done()) order.push_back(i);
    }
    if (order.empty()) return;
    std::shuffle(order.begin(), order.end(), generator);
    for (const size_t i : order) {
      // Repeats in place of disturbed ones of other cells may have used their time up.
      Decide(cells_[i]);
      if (cells_[i].done()) continue;
      const double expected = std::max(cells_[i].seconds, cells_[i].plan.seconds);
      if (settings_.time_limit > 0 && seconds_since(start_) + expected > settings_.time_limit) {
        cells_[i].plan.cell.stopped_by = "time_limit";  // a shorter one may still fit
        continue;
      }
      observe_({cells_[i].plan, round, i + 1, cells_.size(), SecondsLeft()});
      MeasureOnce(cells_[i], round);
      if (EndSignalsNoted::signal() != 0) {
        for (Running& cell : cells_) {
          if (!cell.done()) cell.plan.cell.stopped_by = kInterrupted;
        }
        return;
      }
    }
  }
}

void Runner::MeasureOnce(Running& cell, int round) {
  const long start = monotonic_ns();
  double limit = kHangSeconds + kHangFactor * std::max(cell.seconds, cell.plan.seconds);
  if (settings_.time_limit > 0) {
    // What was begun in time may take a little longer.
    const double left = settings_.time_limit - seconds_since(start_);
    limit = std::min(limit, std::max(left, 0.0) + kHangSeconds);
  }
  ChildResult result = measure_(cell.plan, limit);
  const double seconds = seconds_since(start);
  cell.seconds = std::max(cell.seconds, seconds);
  if (EndSignalsNoted::signal() != 0 && !result.measured) return;
  const bool extra = static_cast<int>(cell.plan.cell.repeats.size()) >= cell.plan.most_repeats;
  if (extra) extra_seconds_ += seconds;
  Add(cell, round, std::move(result));
  Decide(cell);
}

void Runner::Pool::Add(const Repeat& repeat, const Samples& samples) {
  for (const auto& [length, count] : samples) {
    all[length] += count;
    if (repeat.disturbed_by.empty()) clean[length] += count;
  }
}

void Runner::Add(Running& cell, int round, ChildResult result) {
  Cell& to = cell.plan.cell;
  if (!result.measured) {
    ++cell.failures;
    Repeat failed;
    failed.round = round;
    failed.message = result.message;
    to.repeats.push_back(std::move(failed));
    return;
  }
  MeasuredRepeat& measured = *result.measured;
  if (cell.plan.latency_cpu >= 0) {
    to.parameters["prefetchers"] = result.prefetchers_off ? "off" : "on";
  }
  measured.repeat.round = round;
  if (const Json& placement = measured.repeat.placement; placement.contains("share_on_node")) {
    to.parameters["page_size_bytes"] = placement.at("page_size_bytes");
    if (placement.at("share_on_node").get<double>() < kLeastPlaced) mark(to, "placement");
    const auto page = placement.at("page_size_bytes").get<int64_t>();  // 0: not known
    if (cell.plan.memory.kind == MemoryKind::kNuma && page > 0 &&
        page < page_bytes(cell.plan.pages)) {
      mark(to, "page_size");
    }
  } else if (!placement.is_null()) {
    to.parameters["page_size_bytes"] = placement;  // null, with the reason
  }
  const auto note_clock = [&](int64_t delay, const Repeat& repeat) {
    const std::optional<ClockReference> clock = clock_of(repeat.watch);
    if (clock && repeat.disturbed_by.empty()) cell.plan.first_clocks.try_emplace(delay, *clock);
  };
  if (measured.points.empty()) note_clock(0, measured.repeat);
  for (const MeasuredPoint& point : measured.points) note_clock(point.delay, point.repeat);
  cell.pool.Add(measured.repeat, measured.samples);
  if (to.kind == kLoadedLatency) {
    AddPoints(cell, round, measured);
  } else {
    to.repeats.push_back(std::move(measured.repeat));
    to.summary = summarize(to.repeats);
  }
}

void Runner::AddPoints(Running& cell, int round, const MeasuredRepeat& measured) {
  Cell& to = cell.plan.cell;
  if (to.points.empty()) {
    to.points.resize(measured.points.size());
    cell.point_pools.resize(measured.points.size());
    for (const MeasuredPoint& point : measured.points) cell.plan.delays.push_back(point.delay);
  }
  Repeat pass;  // over all points; its figure is the peak
  for (size_t i = 0; i < measured.points.size() && i < to.points.size(); ++i) {
    const MeasuredPoint& from = measured.points[i];
    Point& point = to.points[i];
    point.delay = from.delay;
    point.repeats.push_back(from.repeat);
    point.repeats.back().round = round;
    point.summary = summarize(point.repeats);
    cell.point_pools[i].Add(from.repeat, from.samples);
    const double bandwidth = from.repeat.figures.at(kBytesPerSecond);
    pass.figures[kBytesPerSecond] = std::max(pass.figures[kBytesPerSecond], bandwidth);
    pass.disturbed_by.insert(pass.disturbed_by.end(), from.repeat.disturbed_by.begin(),
                             from.repeat.disturbed_by.end());
  }
  pass.round = round;
  pass.seconds = measured.repeat.seconds;
  pass.placement = measured.repeat.placement;
  // Each rule once, by the point that broke it most.
  std::ranges::stable_sort(pass.disturbed_by, [](const Disturbance& a, const Disturbance& b) {
    return std::pair(a.rule, -a.value) < std::pair(b.rule, -b.value);
  });
  const auto rest =
      std::unique(pass.disturbed_by.begin(), pass.disturbed_by.end(),
                  [](const Disturbance& x, const Disturbance& y) { return x.rule == y.rule; });
  pass.disturbed_by.erase(rest, pass.disturbed_by.end());
  to.repeats.push_back(std::move(pass));
  to.summary = summarize(to.repeats);
}

bool Runner::AllowsExtra(const Running& cell) const {
  const auto& repeats = cell.plan.cell.repeats;
  const auto spoiled = std::ranges::count_if(
      repeats, [](const Repeat& r) { return !r.failed() && !r.disturbed_by.empty(); });
  const int extra = static_cast<int>(repeats.size()) - cell.plan.most_repeats;
  const double total = seconds_since(start_) + SecondsLeft();
  return extra < std::min<long>(spoiled, kMostExtra) &&
         extra_seconds_ + cell.seconds <= kExtraShare * total;
}

void Runner::Decide(Running& cell) {
  Cell& to = cell.plan.cell;
  if (cell.failures >= kMostFailures) {
    to.stopped_by = kFailed;
  } else if (to.points.empty() && mostly_clean(to.repeats) &&
             is_precise(to.kind, to.summary, cell.plan.precision)) {
    to.stopped_by = "precision";
  } else if (static_cast<int>(to.repeats.size()) >= cell.plan.most_repeats && !AllowsExtra(cell)) {
    to.stopped_by = "repeats";
  }
}

double Runner::SecondsLeft() const {
  return std::accumulate(cells_.begin(), cells_.end(), 0.0, [](double sum, const Running& cell) {
    if (cell.done()) return sum;
    const int repeats = static_cast<int>(cell.plan.cell.repeats.size());
    const double one = cell.seconds > 0 ? cell.seconds : cell.plan.seconds;
    return sum + one * std::max(cell.plan.most_repeats - repeats, 0);
  });
}

// Percentiles and histograms pool the repeats; their intervals are those between the repeats.
void Runner::Finish(Running& cell) {
  Cell& to = cell.plan.cell;
  const auto pool = [](const Samples& samples, Summary& summary,
                       std::optional<Histogram>& histogram) {
    if (samples.empty()) return;
    histogram = log_histogram(samples);
    int64_t count = 0;
    for (const auto& [length, samples_of] : samples) count += samples_of;
    const std::pair<const char*, double> figures[] = {
        {kMedianNs, 0.5}, {kP99Ns, 0.99}, {kP999Ns, 0.999}};
    for (const auto& [name, fraction] : figures) {
      const auto found = summary.find(name);
      if (found == summary.end()) continue;
      Estimate& e = found->second;
      e.median = percentile_ns(samples, fraction);
      if (e.median == 0) {  // the timing of most took longer than the loads
        summary.erase(found);
        continue;
      }
      e.low = std::min(e.low, e.median);
      e.high = std::max(e.high, e.median);
    }
    if (count < kTailSamples) summary.erase(kP999Ns);
  };
  // Of the repeats that the summary is taken from.
  const auto counted = [](const Pool& from, const std::vector<Repeat>& repeats) -> const Samples& {
    return mostly_clean(repeats) ? from.clean : from.all;
  };
  pool(counted(cell.pool, to.repeats), to.summary, to.histogram_ns);
  for (size_t i = 0; i < to.points.size(); ++i) {
    Point& point = to.points[i];
    pool(counted(cell.point_pools[i], point.repeats), point.summary, point.histogram_ns);
  }

  if (to.state == kFailed) return;
  if (to.summary.empty()) {
    to.state = kFailed;
    if (!to.repeats.empty()) to.message = to.repeats.back().message;
    if (to.repeats.empty()) {
      ++skipped_;
      to.message = to.stopped_by == kInterrupted ? "Not measured: interrupted before its turn"
                                                 : "Not measured: the time limit came first";
    }
    return;
  }
  // What was measured stands, but not in silence.
  if (cell.failures > 0) {
    mark(to, "failed_repeats");
    to.message = std::to_string(cell.failures) + " of " + std::to_string(to.repeats.size()) +
                 " repeats failed: " + std::ranges::find_if(to.repeats, &Repeat::failed)->message;
  }
  // A pass over a curve is disturbed when a point of it is.
  if (!mostly_clean(to.repeats)) to.state = kDisturbed;
}

std::vector<Cell> Runner::TakeCells() {
  std::vector<Cell> cells;
  for (Running& cell : cells_) {
    Finish(cell);
    cells.push_back(std::move(cell.plan.cell));
  }
  return cells;
}

}  // namespace velmo
