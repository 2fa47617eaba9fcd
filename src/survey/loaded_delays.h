// The delays of a loaded curve, placed where it bends.

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "bandwidth/load_team.h"

namespace velmo {

// Bytes per second that a load moves, over some ten milliseconds.
double probe_load(const LoadSpec& load, const std::vector<int>& cpus,
                  const std::vector<LoadRegions>& regions);

// `points` delays, 2 or more, rising from 0, whose bandwidth falls from the peak to nearly nothing
// in steps that are close near the peak, where latency rises. `bandwidth_at` measures one.
std::vector<int64_t> choose_delays(const std::function<double(int64_t)>& bandwidth_at, int points);

}  // namespace velmo
