#include "fleet/threshold.h"

#include <algorithm>
#include <boost/math/distributions/normal.hpp>
#include <cmath>
#include <functional>

namespace velmo {
namespace {

// The tail is drawn through two deviations: the one that an eighth of the hosts exceed, and the one
// that an eighth of those exceed.
constexpr double kTailShare = 8;
constexpr size_t kLeastTail = 4;

// Margins for the tail of few hosts, fitted by counting: k hosts tell its scale within about
// 1/sqrt(k), and it is followed to a third of the wanted probability.
constexpr double kTailMargin = 0.5;
constexpr double kTailProbability = 1.0 / 3;

// Tails heavier than the cube of a normal one are drawn so.
constexpr double kHeaviest = 3;

constexpr double kLeastDeviation = 0.3;  // of the first point; below it the tail has no direction

// The deviation that a normal figure exceeds with probability `p`.
double normal_quantile(double p) {
  constexpr double kCentre = 0.45;  // from here on, ratios of quantiles mean nothing
  return quantile(complement(boost::math::normal(), std::min(p, kCentre)));
}

// Where the tail of `deviations`, which fall, reaches probability `p` a figure, as a power of the
// normal tail.
double tail_at(const std::vector<double>& deviations, double figures_a_host, double p) {
  const auto hosts = static_cast<double>(deviations.size());
  const auto eighth = static_cast<size_t>(std::ceil(hosts / kTailShare));
  const size_t first = std::min(std::max(kLeastTail, eighth), deviations.size());
  const auto second = std::max<size_t>(
      1, static_cast<size_t>(std::lround(static_cast<double>(first) / kTailShare)));
  const double near = std::max(deviations[first - 1], kLeastDeviation);
  const double far = std::max(deviations[second - 1], near);
  const auto expected = [&](size_t rank) {
    return normal_quantile((static_cast<double>(rank) - 0.5) / hosts / figures_a_host);
  };
  const double power = std::clamp(
      std::log(far / near) / std::log(expected(second) / expected(first)), 1.0, kHeaviest);
  return near * (1 + kTailMargin / std::sqrt(static_cast<double>(first))) *
         std::pow(normal_quantile(p * kTailProbability) / expected(first), power);
}

// Raises `reached` until it agrees with the tail of the hosts that do not exceed it: hosts beyond a
// gap have no say in where the gap is.
double settle(std::vector<double> deviations, double figures_a_host, double p, double reached) {
  std::sort(deviations.begin(), deviations.end(), std::greater<>());
  for (;;) {
    const auto within = std::lower_bound(deviations.begin(), deviations.end(), reached,
                                         [](double a, double b) { return a > b; });
    const std::vector<double> rest(within, deviations.end());
    if (rest.size() < kLeastTail) return reached;
    const double next = tail_at(rest, figures_a_host, p);
    if (next <= reached) return reached;
    const bool changes = within != deviations.begin() && *(within - 1) <= next;
    reached = next;
    if (!changes) return reached;
  }
}

}  // namespace

double threshold(const Sides& sides, double figures_a_host, double figures_in_all, double least) {
  const double p = kFalseNames / figures_in_all;
  const double normal = std::max(least, normal_quantile(p));
  return settle(sides.bad, figures_a_host, p, settle(sides.good, figures_a_host, p, normal));
}

}  // namespace velmo
