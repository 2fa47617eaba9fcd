// The machine as this process may use it.

#include <numa.h>

#include <algorithm>

#include "app/console.h"
#include "platform/cgroup.h"
#include "platform/cpu_info.h"
#include "platform/usable.h"
#include "survey/plan.h"

namespace velmo {

Topology read_topology() {
  NumaInfo info;
  info.Parse();
  Topology machine;
  machine.node_cpus.resize(info.numa_list.size());
  std::vector<int> all;
  for (size_t n = 0; n < info.numa_list.size(); ++n) {
    for (const int cpu : info.numa_list[n].cpu_list) {
      if (!info.usable_cpus.empty() && !std::ranges::binary_search(info.usable_cpus, cpu)) continue;
      machine.node_cpus[n].push_back(info.cpu_list[cpu]);
      all.push_back(cpu);
    }
  }
  if (all.empty()) {
    Fatal() << "No CPU can be used: " << info.node_online_path
            << " names no node with one, or the limits of this process leave none\n";
  }
  const std::vector<int> forbidden = memory_nodes().forbidden;
  for (size_t n = 0; n < info.numa_list.size(); ++n) {
    const int node = static_cast<int>(n);
    const bool allowed = std::ranges::find(forbidden, node) == forbidden.end();
    if (info.numa_list[n].is_online && allowed && numa_node_size64(node, nullptr) > 0) {
      machine.memory_nodes.push_back(node);
    }
    std::vector<int>& row = machine.distances.emplace_back();
    for (size_t other = 0; other < info.numa_list.size(); ++other) {
      row.push_back(numa_distance(node, static_cast<int>(other)));
    }
  }
  std::sort(all.begin(), all.end());
  machine.caches.Read(all);
  // Spinning would use a quota of CPU time up.
  CpuInfo processor;
  processor.GetCpuInfo();
  const auto groups = cgroup_folders("cpu");
  machine.spinning = processor.WantsAwakeNodes() &&
                     std::ranges::none_of(groups, [](const auto& g) { return cpu_quota(g) >= 0; });
  return machine;
}

}  // namespace velmo
