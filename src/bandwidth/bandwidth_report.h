// A bandwidth measurement on the console and in its log file.

#pragma once

#include <ostream>

#include "bandwidth/measure_bandwidth.h"

namespace velmo {

// The line of a counted interval.
void WriteInterval(std::ostream& out, int number, double bandwidth);

// The lines of average, maximum and minimum.
void WriteBandwidth(std::ostream& out, const BandwidthResult& result);

}  // namespace velmo
