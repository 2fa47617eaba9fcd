// Which repeats of a cell, or of a point, its figures are taken from.

#pragma once

#include <string_view>
#include <vector>

#include "survey/record.h"

namespace velmo {

// The repeats that count: those that did not fail and were not disturbed, or, where these are fewer
// than half, all that did not fail. They point into `repeats`.
std::vector<const Repeat*> counted_repeats(const std::vector<Repeat>& repeats);

// The figure `name` of the repeats that count, in their order. A repeat that lacks it is left out.
std::vector<double> counted_values(const std::vector<Repeat>& repeats, std::string_view name);

}  // namespace velmo
