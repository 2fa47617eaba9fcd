// The slow figures of a group.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "fleet/grouping.h"
#include "fleet/host.h"

namespace velmo {

struct Rules {
  std::optional<double> threshold;  // in place of the one that the spread of a group gives
  double floor = 0.03;              // least share by which a slow figure departs from its median
};

struct SlowFigure {
  uint32_t host;    // number in Fleet::hosts
  uint32_t figure;  // in Fleet::figures
  double value;
  double median;  // of the group
  double score;   // robust standard deviations from the median
  double threshold;

  double change() const { return value / median - 1; }
};

struct Judgement {
  std::array<double, kFigureClasses> thresholds{};  // 0: no figure of the class was compared
  std::vector<SlowFigure> slow;                     // by host, the clearest first
};

// How many figures the groups compare in all; what judge_group() needs to know.
double compared_figures(const Fleet& fleet, const std::vector<Group>& groups);

// Compares the hosts of `group`, which has kLeastHosts with its reference.
Judgement judge_group(const Fleet& fleet, const Group& group, double compared, const Rules& rules);

}  // namespace velmo
