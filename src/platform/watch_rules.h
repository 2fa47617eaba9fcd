// What counts as a disturbance of a measured stretch. The limits and their reasons are in
// docs/reducing-variance.md.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watch.h"

namespace velmo {

// A rule that a stretch broke: `value` is above `limit`, both in `unit` ("%", "1/s" or "").
struct BrokenRule {
  std::string rule;
  double value;
  double limit;
  std::string unit;
};

// The clock of an earlier stretch: WatchRecord::clock and clock_unit.
struct ClockReference {
  double clock;
  std::string unit;
};

// The rules that the stretch broke, each once. What is not known breaks none. `first` is the clock
// of the first repeat of the same cell; none: this is the first.
std::vector<BrokenRule> broken_rules(const WatchRecord& record,
                                     const std::optional<ClockReference>& first = {});

// What the rule of that name means for the figures, and what to do about it, in one line; empty for
// any other name.
std::string_view rule_advice(std::string_view rule);

}  // namespace velmo
