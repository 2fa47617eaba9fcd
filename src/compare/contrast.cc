#include "compare/contrast.h"

#include <algorithm>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <numeric>

#include "compare/rank_test.h"

namespace velmo {
namespace {

constexpr size_t kFewest = 4;

// With more values than this a side the exact distribution takes noticeable time, and the mean of
// so many is normal enough for t.
constexpr size_t kMostExact = 50;

struct Mean {
  double value = 0;
  double squared_error = 0;
  double freedom = 0;
};

Mean mean_of(const std::vector<double>& values) {
  const auto count = static_cast<double>(values.size());
  const double mean = std::accumulate(values.begin(), values.end(), 0.0) / count;
  double squares = 0;
  for (const double value : values) squares += (value - mean) * (value - mean);
  if (values.size() < 2) return {mean, 0, 0};
  return {mean, squares / (count - 1) / count, count - 1};
}

std::vector<double> sorted_differences(const std::vector<double>& old_values,
                                       const std::vector<double>& new_values) {
  std::vector<double> differences;
  differences.reserve(old_values.size() * new_values.size());
  for (const double a : old_values) {
    for (const double b : new_values) differences.push_back(b - a);
  }
  std::sort(differences.begin(), differences.end());
  return differences;
}

}  // namespace

bool Contrast::enough(size_t old_count, size_t new_count) {
  return std::min(old_count, new_count) >= kFewest;
}

Contrast::Contrast(const std::vector<double>& old_values, const std::vector<double>& new_values,
                   double level)
    : old_count_(old_values.size()), new_count_(new_values.size()) {
  if (std::max(old_count_, new_count_) <= kMostExact &&
      smallest_rank_p(old_count_, new_count_) <= level) {
    differences_ = sorted_differences(old_values, new_values);
    return;
  }
  const Mean a = mean_of(old_values);
  const Mean b = mean_of(new_values);
  const auto part = [](const Mean& m) {
    return m.freedom > 0 ? m.squared_error * m.squared_error / m.freedom : 0.0;
  };
  const double squared_error = a.squared_error + b.squared_error;
  mean_ = b.value - a.value;
  error_ = std::sqrt(squared_error);
  if (error_ > 0) freedom_ = squared_error * squared_error / (part(a) + part(b));
}

double Contrast::p_beyond(double margin) const {
  if (exact()) {
    const std::vector<double>& distribution = rank_distribution(old_count_, new_count_);
    // Of pairs that tie at the margin, none speaks for a change.
    const auto not_above = std::upper_bound(differences_.begin(), differences_.end(), margin);
    const auto not_below = std::lower_bound(differences_.begin(), differences_.end(), -margin);
    const auto u = static_cast<size_t>(
        std::min(not_above - differences_.begin(), differences_.end() - not_below));
    return std::min(1.0, 2 * distribution[u]);
  }
  const boost::math::students_t distribution(freedom_);
  const double t = (std::abs(mean_) - margin) / error_;
  return std::min(1.0, 2 * boost::math::cdf(boost::math::complement(distribution, t)));
}

Interval Contrast::interval(double level) const {
  if (exact()) {
    const std::vector<double>& distribution = rank_distribution(old_count_, new_count_);
    size_t cut = 1;  // the constructor's level allows this much
    while (2 * cut < differences_.size() && 2 * distribution[cut] <= level) ++cut;
    return {median(differences_), differences_[cut - 1], differences_[differences_.size() - cut]};
  }
  const boost::math::students_t distribution(freedom_);
  const double reach =
      error_ * boost::math::quantile(boost::math::complement(distribution, level / 2));
  return {mean_, mean_ - reach, mean_ + reach};
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

}  // namespace velmo
