// Bandwidth of a load team, second by second or over a fixed number of passes.

#pragma once

#include <functional>
#include <vector>

#include "bandwidth/load_team.h"

namespace velmo {

// In MB/s, 10^6 bytes.
struct BandwidthResult {
  std::vector<double> seconds;  // sum over the threads, of each counted interval
  std::vector<double> threads;  // average of each thread over the counted intervals
  double average = 0;           // of `seconds`, as are the two below
  double maximum = 0;
  double minimum = 0;
};

struct BandwidthSpec {
  int intervals = 10;            // that are counted, 1 or more
  int warm_up = 4;               // that are measured and dropped before them, 1 or more
  double interval = 1.0;         // s
  bool busy = true;              // keep the sampling CPU busy; false: it has work of its own
  StretchObserver stretch = {};  // of the counted intervals
};

// Told the number of a counted interval, from 1 on, and its sum in MB/s.
using BandwidthObserver = std::function<void(int number, double bandwidth)>;

// Opens the gate of a parked team, samples it from the calling thread, and stops it.
BandwidthResult MeasureBandwidth(LoadTeam& team, const BandwidthSpec& spec,
                                 const BandwidthObserver& observe = {});

// Opens the gate of a parked team whose workers make a fixed number of passes, and waits for them;
// `observe` is told the CPU and the MB/s of each. The result has `threads` alone, and their sum as
// its average.
BandwidthResult MeasurePasses(LoadTeam& team, const BandwidthObserver& observe = {});

}  // namespace velmo
