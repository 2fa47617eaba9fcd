#include "survey/awake_cpus.h"

#include <algorithm>

namespace velmo {

std::vector<int> awake_cpus(const CellPlan& plan, const Topology& machine) {
  if (!machine.spinning) return {};
  const auto loads = [&](const NumaInfo::cpu_ctx& cpu) {
    return std::ranges::find(plan.load, cpu.cpu_id, &LoadSeat::cpu) != plan.load.end();
  };
  NumaInfo::cpu_ctx measuring{0, -1, -1, -1};
  auto nodes = machine.node_cpus;
  for (auto& cpus : nodes) {
    for (const auto& cpu : cpus) {
      if (cpu.cpu_id == plan.latency_cpu) measuring = cpu;
    }
    if (std::ranges::any_of(cpus, loads)) cpus.clear();
  }
  std::vector<int> awake;
  for (const auto* cpu : cpus_to_keep_awake(nodes, measuring)) {
    // A node with no other core is awake by the one that measures.
    if (cpu != nullptr) awake.push_back(cpu->cpu_id);
  }
  return awake;
}

}  // namespace velmo
