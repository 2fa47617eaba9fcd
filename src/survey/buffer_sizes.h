// How large the buffers of a cell are.

#pragma once

#include <cstdint>
#include <vector>

#include "survey/plan.h"

namespace velmo {

// Sizes that leave the last-level caches in play behind, as far as there is memory for them.
class BufferSizes {
 public:
  // Both must outlive this.
  BufferSizes(const SurveyOptions& options, const Topology& machine)
      : options_(options), machine_(machine) {}

  // Sets the bytes of the chain, where the plan has a CPU that measures latency and no size yet,
  // and of the regions, where it has a load. Where memory or a control group has no room for them,
  // all are lowered by the same share, so that they cover the caches as many times; less than
  // covers them is marked. Sizes that were asked for are not lowered, nor any to next to nothing:
  // the cell has failed then, with the reason.
  void Set(CellPlan& plan) const;

  // Bytes of the last-level caches of `cpus`, above 0 also where they are not known.
  int64_t LastLevel(const std::vector<int>& cpus) const;

 private:
  int64_t WantedChain(const CellPlan& plan, int64_t unit) const;
  int64_t WantedRegion(const CellPlan& plan, int64_t least) const;

  const SurveyOptions& options_;
  const Topology& machine_;
};

// CPUs of the load of `plan`, rising.
std::vector<int> load_cpus(const CellPlan& plan);

// The regions that each thread of the load of `plan` touches: 1, or 2 with reads and writes of its
// own.
int64_t regions_touched(const CellPlan& plan);

// Marks the cell as failed, with the reason.
void fail_cell(CellPlan& plan, const std::string& why);

}  // namespace velmo
