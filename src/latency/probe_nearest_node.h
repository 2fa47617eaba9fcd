// The search for the CPU node next to a memory, where the firmware's distances do not tell.

#pragma once

#include <functional>
#include <vector>

#include "mem/buffer.h"

namespace velmo {

// The CPU that measures for a node.
struct ProbingCpu {
  int node;
  int cpu;
};

// The node of `from` (not empty) for which `measure` tells the least latency, in ns; the first one
// where none is below 100 us.
int NearestOf(const std::vector<ProbingCpu>& from,
              const std::function<double(const ProbingCpu&)>& measure);

// The node of `from` (not empty) whose CPU has the least latency to `probe`. `begin` is called
// before each measurement.
int FindNearestNode(const Buffer& probe, const std::vector<ProbingCpu>& from,
                    const std::function<void(const ProbingCpu&)>& begin);

}  // namespace velmo
