// The cells of a survey: what is measured of a machine, and how.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bandwidth/load_plan.h"
#include "mem/buffer.h"
#include "platform/caches.h"
#include "platform/numa_info.h"
#include "platform/watch_rules.h"
#include "survey/options.h"
#include "survey/record.h"

namespace velmo {

inline constexpr int32_t kChainStride = 256;  // bytes between elements of every chain

// One load thread: its CPU and the memory that it moves.
struct LoadSeat {
  int cpu;
  MemoryTarget memory;
};

// How a repeat of a cell is measured.
struct CellPlan {
  Cell cell;  // its kind, source, memory and parameters
  MemoryTarget memory;
  PageSize pages = PageSize::k4K;
  int latency_cpu = -1;         // that measures latency; -1: none is measured
  int sampling_cpu = -1;        // that samples a load and has no other work; -1: one of the load's
  int64_t chain_bytes = 0;      // of the buffer with the chain
  std::vector<int> setup_cpus;  // that lay the chain, side by side
  std::vector<int> awake_cpus;  // that are kept busy, one of a node that would fall asleep
  int64_t region_bytes = 0;     // of each region of a load thread
  std::vector<LoadSeat> load;
  Mix mix{1, 0, 0};
  int points = 0;               // of a loaded curve
  std::vector<int64_t> delays;  // of its points; empty: to be chosen by the first repeat
  int most_repeats = 7;
  double precision = 0.01;  // share of the median that its interval may be wide, to each side
  double seconds = 0;       // that a repeat takes, roughly
  // The clock of the first clean repeat, by the delay of a point; of others at 0.
  std::map<int64_t, ClockReference> first_clocks;
};

struct Topology {
  std::vector<std::vector<NumaInfo::cpu_ctx>> node_cpus;  // usable CPUs, by node
  std::vector<int> memory_nodes;                          // with memory that may be used
  std::vector<std::vector<int>> distances;                // from node to node
  Caches caches;                                          // of all usable CPUs
  bool spinning = false;  // whether CPUs of nodes are to be kept awake
};

// The machine as this process may use it. exit(1) where nothing can be measured.
Topology read_topology();

// All cells that the options ask of the machine. exit(1) when they name a node that is not there or
// may not be used.
std::vector<CellPlan> plan_cells(const SurveyOptions& options, const Topology& machine);

// Whether idle latency should be measured on pages of 2 MiB, too, but no node has any.
bool lacks_large_pages(const SurveyOptions& options, const std::vector<CellPlan>& plan);

}  // namespace velmo
