#include "survey/loaded_delays.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "bandwidth/measure_bandwidth.h"

namespace velmo {
namespace {

// Beyond the delays at which any load has become idle.
constexpr int64_t kIdleDelay = 60'000;

// Shares of the peak that the points aim at: half of them above four fifths of it.
double share_of(int point, int points) {
  const double x = static_cast<double>(point) / (points - 1);
  return 1 - std::pow(x, 1.8);
}

double median_of_three(double a, double b, double c) {
  return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

}  // namespace

double probe_load(const LoadSpec& load, const std::vector<int>& cpus,
                  const std::vector<LoadRegions>& regions) {
  LoadTeam team(load, cpus, regions);
  team.Park();
  return MeasureBandwidth(team, {.intervals = 1, .warm_up = 1, .interval = 0.02, .busy = false})
      .average;
}

std::vector<int64_t> choose_delays(const std::function<double(int64_t)>& bandwidth_at, int points) {
  const auto thrice = [&](int64_t delay) {
    const double first = bandwidth_at(delay);
    const double second = bandwidth_at(delay);
    return median_of_three(first, second, bandwidth_at(delay));
  };
  // Probed from light to full load. A probe takes milliseconds, in which a host may do much: one
  // that lies outside of its neighbours is replaced, the ends by more probes.
  std::vector<std::pair<int64_t, double>> probes = {{kIdleDelay, thrice(kIdleDelay)}};
  for (int64_t delay = kIdleDelay / 2; delay >= 4; delay /= 2) {
    probes.emplace_back(delay, bandwidth_at(delay));
  }
  const double full = thrice(0);
  // What noise still makes rise is levelled.
  std::vector<std::pair<int64_t, double>> curve;
  double most = 0;
  for (size_t i = 0; i < probes.size(); ++i) {
    const double lighter = probes[i > 0 ? i - 1 : i].second;
    const double heavier = i + 1 < probes.size() ? probes[i + 1].second : full;
    most = std::max(most, median_of_three(lighter, probes[i].second, heavier));
    curve.emplace_back(probes[i].first, most);
  }
  const double peak = std::max(most, full);
  std::vector<int64_t> delays = {0};
  for (int point = 1; point + 1 < points; ++point) {
    const double wanted = share_of(point, points) * peak;
    const auto above =
        std::ranges::find_if(curve, [&](const auto& at) { return at.second >= wanted; });
    double delay = 4;
    if (above == curve.end()) {
      // Between full load and the least delay that was probed.
      delay = 4.0 * point / points;
    } else if (above == curve.begin()) {
      delay = static_cast<double>(above->first);
    } else {
      const auto below = std::prev(above);
      const double part = (wanted - below->second) / (above->second - below->second);
      // Bandwidth is nearly the reciprocal of the delay: between two powers of two, of its
      // logarithm.
      delay = std::exp2(std::log2(below->first) +
                        part * (std::log2(above->first) - std::log2(below->first)));
    }
    // Every point has a delay of its own.
    delays.push_back(std::max<int64_t>(std::lround(delay), delays.back() + 1));
  }
  delays.push_back(std::max(kIdleDelay, delays.back() + 1));
  return delays;
}

}  // namespace velmo
