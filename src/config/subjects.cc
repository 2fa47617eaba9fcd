// What a run will measure, as far as its configuration tells.

#include <algorithm>
#include <set>

#include "config/configurator.h"

namespace velmo {

bool Configurator::HasCpus(int node) const {
  return node >= 0 && static_cast<size_t>(node) < node_cpus.size() && !node_cpus[node].empty();
}

const NumaInfo::cpu_ctx& Configurator::MeasuringCpu(int node) const {
  const auto& cpus = node_cpus[node];
  const NumaInfo::cpu_ctx& first = cpus.front();
  if (first.cpu_id != 0) return first;
  // CPU 0 serves the system's interrupts.
  const auto other_core = std::find_if(
      cpus.begin(), cpus.end(), [&first](const auto& cpu) { return cpu.core_id != first.core_id; });
  return other_core != cpus.end() ? *other_core : first;
}

Subjects Configurator::UnderTest() const {
  const bool latency = run_latency || run_loaded_latency;
  const bool load = run_bandwidth || run_loaded_latency;
  bool known = thread == -1;  // -j takes some of the candidates
  std::set<int> cpus;
  const auto add = [&cpus](const std::vector<NumaInfo::cpu_ctx>& list) {
    for (const auto& cpu : list) cpus.insert(cpu.cpu_id);
  };
  const auto add_all = [&] {
    for (const auto& list : node_cpus) add(list);
  };
  for (const int node : cpunode_list) {
    const bool has_cpus = HasCpus(node);
    if (latency && latency_cpu.cpu_id != -1) {
      add({latency_cpu});
    } else if (latency && has_cpus) {
      add({MeasuringCpu(node)});
    } else if (latency) {
      known = false;
    }
    if (load && bandwidth_local == 1 && load_cpu.empty()) {
      if (has_cpus) add(node_cpus[node]);
      known = known && has_cpus;
    } else if (load && load_cpu.empty()) {
      add_all();
    } else if (load) {
      add(load_cpu);
    }
  }
  if (!known) add_all();

  Subjects subjects{{cpus.begin(), cpus.end()}, known, latency, {}};
  if (mem_mode == kMemNuma && !no_memnode) subjects.nodes = memnode_list;
  return subjects;
}

}  // namespace velmo
