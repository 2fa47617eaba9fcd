// How far two samples lie apart, and how sure that is.

#pragma once

#include <cstddef>
#include <vector>

namespace velmo {

struct Interval {
  double estimate = 0;
  double low = 0;
  double high = 0;
};

// The shift from `old_values` to `new_values`: by Mann and Whitney's exact distribution, with the
// estimate of Hodges and Lehmann (the median of all differences), where so few values can reach the
// level that is asked for; otherwise by Student's t with the variances of both sides (Welch).
class Contrast {
 public:
  // At least four values a side: of fewer, not even the most telling order is significant at 5 %.
  static bool enough(size_t old_count, size_t new_count);

  // For samples that are enough. `level`, two-sided, chooses the method, and is the smallest that
  // interval() will be asked for.
  Contrast(const std::vector<double>& old_values, const std::vector<double>& new_values,
           double level);

  bool exact() const { return !differences_.empty(); }

  // False where t is to tell and no value of either side differs from another, which is no measure
  // of how far they spread.
  bool usable() const { return exact() || error_ > 0; }

  // The p-value of the hypothesis that the shift is at most `margin` in either direction.
  double p_beyond(double margin) const;

  // The interval that holds the shift with a probability of 1 - level at least. p_beyond(margin) is
  // at most `level` where it lies wholly beyond `margin`, and only there.
  Interval interval(double level) const;

 private:
  size_t old_count_;
  size_t new_count_;
  std::vector<double> differences_;  // new - old, rising; empty where t tells
  double mean_ = 0;                  // difference of the means, for t
  double error_ = 0;                 // its standard error
  double freedom_ = 0;               // degrees of freedom
};

// The median of `values`, of which there is at least one.
double median(std::vector<double> values);

}  // namespace velmo
