// How far a figure has to be from its group's median before its host is called slow.

#pragma once

#include <vector>

namespace velmo {

// Fewer robust standard deviations never name a host.
inline constexpr double kLeastScore = 4;

// False names a report of equal hosts may have on average.
inline constexpr double kFalseNames = 0.1;

// The larger deviation of each host on the two sides of its group's median, over the figures of one
// class, in robust standard deviations. Below 0: all figures are on the other side.
struct Sides {
  std::vector<double> good;
  std::vector<double> bad;
};

// The deviation beyond which of `figures_in_all` figures, the share of this class among them, at
// most kFalseNames are expected where all hosts are equal; at least `least`. A host has
// `figures_a_host` of this class.
//
// It is the larger of what normal figures would reach and of what the tails of these hosts point
// to, those of the good side and those of the bad one. docs/fleet.md has the reasons, and
// bench/false_names.cc counts.
double threshold(const Sides& sides, double figures_a_host, double figures_in_all, double least);

}  // namespace velmo
