// The bandwidth benchmark: how many bytes a second the load threads move to and from every memory
// target, for one read/write mix or for a list of basic ones (-B, -T).

#pragma once

#include <array>
#include <vector>

#include "bandwidth/load_bench.h"

namespace velmo {

class Bandwidth : public LoadBench {
 public:
  explicit Bandwidth(Configurator config);

  void Run() override;

  // One measurement of `mix` over all load threads, printed and logged: the sum
  // over the threads once a second, then average, maximum and minimum. In the protocol-analyzer
  // mode every thread runs a fixed number of passes and reports its own figure; nothing is logged.
  void Measure(const Mix& mix);

  std::array<Mix, 6> basic_workloads_{
      {{1, 0, 0}, {0, 1, 1}, {3, 1, 0}, {2, 1, 0}, {1, 1, 0}, {2, 1, 1}}};

 private:
  std::vector<Mix> Workloads() const;
  void MeasureTarget();
  void RunAnalyzer(LoadTeam& team) const;
};

}  // namespace velmo
