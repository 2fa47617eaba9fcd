// What the repeats of a cell say together, and whether they are enough.

#pragma once

#include <string>
#include <vector>

#include "survey/record.h"

namespace velmo {

// The median of `values` (not empty) and its interval: of at least 95 % by order statistics from 6
// values on, the range of fewer.
Estimate estimate(std::vector<double> values);

// Half of the interval as a share of the median.
double relative_error(const Estimate& estimate);

// The summary of the figures of the repeats that count (survey/repeats.h).
Summary summarize(const std::vector<Repeat>& repeats);

// Whether the medians that matter in a cell of `kind` are known to `precision`: by intervals, not
// by ranges.
bool is_precise(const std::string& kind, const Summary& summary, double precision);

// A histogram with eight bins for each doubling, of samples in tenths of a nanosecond.
Histogram log_histogram(const std::map<int64_t, int64_t>& samples);

}  // namespace velmo
