// Two surveys, or two sets of surveys, against each other.

#pragma once

#include <string>
#include <vector>

#include "compare/differences.h"
#include "compare/matching.h"
#include "compare/verdict.h"

namespace velmo {

// The margin within which two figures are the same, in percent.
inline constexpr double kDefaultMargin = 1;

// Refers to the sides, which outlive it.
struct Comparison {
  const Side* old_side = nullptr;
  const Side* new_side = nullptr;
  bool sets = false;  // a side has several surveys, so that the survey is the unit, not the repeat
  double margin_percent = kDefaultMargin;
  std::vector<Difference> differences;
  std::vector<std::string> only_old;  // keys of the cells without a partner
  std::vector<std::string> only_new;
  std::vector<Finding> findings;  // worse first; those without a verdict last

  // How many findings have this verdict, and no reason to have none.
  int count(Verdict verdict) const;
  int without_verdict() const;
};

// `margin_percent` is 0 or more. Throws std::runtime_error where no cell of one side has a partner
// on the other one.
Comparison compare(const Side& old_side, const Side& new_side, double margin_percent);

// A logarithm of a ratio as a change in percent: 0.01 is 1.005.
double percent_of(double logarithm);

}  // namespace velmo
