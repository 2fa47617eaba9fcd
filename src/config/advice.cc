#include "config/advice.h"

#include <unistd.h>

#include <set>
#include <string>

#include "app/console.h"

namespace velmo {

Subjects under_test(const Configurator& config) {
  const bool latency = config.run_latency || config.run_loaded_latency;
  const bool load = config.run_bandwidth || config.run_loaded_latency;
  bool known = config.thread == -1;  // -j takes some of the candidates
  std::set<int> cpus;
  const auto add = [&cpus](const std::vector<NumaInfo::cpu_ctx>& list) {
    for (const auto& cpu : list) cpus.insert(cpu.cpu_id);
  };
  const auto add_all = [&] {
    for (const auto& list : config.node_cpus) add(list);
  };
  for (const int node : config.cpunode_list) {
    const bool has_cpus = config.HasCpus(node);
    if (latency && config.latency_cpu.cpu_id != -1) {
      add({config.latency_cpu});
    } else if (latency && has_cpus) {
      add({config.MeasuringCpu(node)});
    } else if (latency) {
      known = false;
    }
    if (load && config.bandwidth_local == 1 && config.load_cpu.empty()) {
      if (has_cpus) add(config.node_cpus[node]);
      known = known && has_cpus;
    } else if (load && config.load_cpu.empty()) {
      add_all();
    } else if (load) {
      add(config.load_cpu);
    }
  }
  if (!known) add_all();

  Subjects subjects{{cpus.begin(), cpus.end()}, known, latency, {}};
  if (config.mem_mode == kMemNuma && !config.no_memnode) subjects.nodes = config.memnode_list;
  subjects.unbound = config.mem_mode == kMemNuma && config.no_memnode;
  return subjects;
}

void tell_spoilers(const Configurator& config) {
  if (!is_watched()) return;
  for (const std::string& text : find_spoilers(under_test(config))) Warn() << text << '\n';
}

bool is_watched() { return isatty(STDERR_FILENO) == 1; }

void tell_disturbances(const Disturbances& disturbances) {
  if (!is_watched()) return;
  for (const std::string& line : disturbances.Lines()) Warn() << line << '\n';
}

}  // namespace velmo
