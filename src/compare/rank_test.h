// The exact distribution of Mann and Whitney's U: of n values and m others, all from one
// distribution, the number of pairs in which the other one is smaller.
//
// It needs no assumption on how values spread, so that a rare value far off does no harm, and it is
// exact for the handful of repeats that a survey has.

#pragma once

#include <cstddef>
#include <vector>

namespace velmo {

// P(U <= u) for u from 0 to n * m. `n` and `m` are at least 1; the time grows with (n * m)^2, so
// keep them below a hundred. Computed once for each pair, and kept.
const std::vector<double>& rank_distribution(size_t n, size_t m);

// The smallest two-sided p-value that n and m values can have: of all their orders, the two in
// which one side lies wholly above the other.
double smallest_rank_p(size_t n, size_t m);

// A significance level for each hypothesis of a family by Holm's stepwise correction with weights.
struct Hypothesis {
  double p = 1;
  double weight = 1;  // its share of the level of the whole family; above 0
};

// Rejecting each hypothesis whose p is at most its level rejects a true one with a probability of
// at most `alpha` in the whole family, however the values depend on each other.
std::vector<double> holm_levels(const std::vector<Hypothesis>& family, double alpha);

}  // namespace velmo
