// What two loaded curves can be compared by: the peak of each pass over the curve, and the latency
// of each pass at a bandwidth that both sides deliver. The delays of two surveys need not be equal.

#pragma once

#include <vector>

#include "survey/record.h"

namespace velmo {

// Of each pass over the points of `cell` in which no point failed, a repeat with its largest
// bytes_per_second. It is disturbed where that point was.
std::vector<Repeat> curve_peaks(const Cell& cell);

// Of each such pass, a repeat with the latencies at `bytes_per_second`, linear between the two
// points where the pass first exceeds it as its load rises. It is disturbed where one of these
// was, and has no figures where the pass does not get there, or begins above.
std::vector<Repeat> curve_latencies(const Cell& cell, double bytes_per_second);

}  // namespace velmo
