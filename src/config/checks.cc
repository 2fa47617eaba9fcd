// Checks and derivations behind the last option: commands, combinations, sizes, targets.

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "app/console.h"
#include "app/text.h"
#include "config/configurator.h"
#include "platform/dax.h"

namespace velmo {
namespace {

constexpr int64_t kMiB = int64_t{1} << 20;

constexpr int64_t kMinBandwidthMiB = 100;
constexpr int64_t kMinLatencyGiB = 2;

void warn_small(const char* measured, int64_t size, const char* unit) {
  Warn() << "Memory size is not enough to measure " << measured << '\n'
         << "                It is recommended to set memory size to " << size << unit << '\n';
}

}  // namespace

void Configurator::CheckOptions() {
  if (!run_bandwidth && !run_latency && !run_loaded_latency) {
    RejectWithUsage("Invalid options. (No command)\n");
  }
  if (memnode != -1 && !base_addr.empty()) {
    RejectWithUsage("Invalid options. -b and -M can't be used together.\n");
  }
  CheckCpuOptions();
  if (run_loaded_latency) CheckLoadedLatencyCpus();
  if (memnode != -1) BindMemoryNode();
  if (run_bandwidth || run_loaded_latency) {
    DeriveBandwidthSettings();
  } else {
    DeriveLatencySettings();
  }
  DeriveTargets();
  CheckAllowedNodes();
  if (cpunode != -1) {
    cpunode_list.assign(num_targets, cpunode);
    bandwidth_local = 1;
  }
  for (const auto& node : numa_info.numa_list) {
    auto& cpus = node_cpus.emplace_back();
    for (const int cpu : node.cpu_list) {
      if (numa_info.IsUsable(cpu)) cpus.push_back(numa_info.cpu_list[cpu]);
    }
  }
  if ((run_bandwidth || run_loaded_latency) && mem_mode == kMemDevdax) {
    Fatal() << "devdax mode can't measure bandwidth.\n";
  }
  if (latency_cpu.cpu_id != -1) cpunode_list.assign(num_targets, latency_cpu.numa_id);
}

void Configurator::CheckCpuOptions() const {
  if (cpunode == -1 && thread == -1 && bandwidth_local != 1) return;
  if (latency_cpu.cpu_id != -1)
    RejectWithUsage("Invalid option. -C/-T/-j and -k can't be used together.\n");
  if (!load_cpu.empty())
    RejectWithUsage("Invalid option. -C/-T/-j and -l can't be used together.\n");
}

void Configurator::CheckLoadedLatencyCpus() const {
  if ((latency_cpu.cpu_id != -1) != !load_cpu.empty()) {
    Fatal() << "--loaded_latency need both lat_cpu and load_cpu.\n";
  }
  if (load_cpu.empty()) return;
  for (const NumaInfo::cpu_ctx& load : load_cpu) {
    if (load.cpu_id == latency_cpu.cpu_id) {
      Fatal() << "lat_cpu and load_cpu can't use same cpu_id. lat_cpu: " << latency_cpu.cpu_id
              << ", load_cpu: " << load.cpu_id << '\n';
    }
  }
  for (const NumaInfo::cpu_ctx& load : load_cpu) {
    if (same_core(load, latency_cpu)) {
      Warn() << "lat_cpu and load_cpu use same physical core. It is recommended that use another "
                "physical core.\n"
             << "                lat_cpu : " << latency_cpu.cpu_id
             << ", core_id: " << latency_cpu.core_id << '\n'
             << "                load_cpu: " << load.cpu_id << ", core_id: " << load.core_id
             << '\n';
      return;
    }
  }
}

void Configurator::BindMemoryNode() {
  const NumaInfo::numa_list_elem* node = FindNode(memnode);
  if (node == nullptr) RejectWithUsage("Invalid memnode.\n");
  if (!node->is_online) {
    RejectWithUsage("Invalid memnode. Check if memory node is online.\n");
  }
  if (mem_mode == kMemDevdax || mem_mode == kMemPmem) {
    RejectWithUsage("-M option can't be used together with -f or -g option.\n");
  }
  if (mem_mode == kMemPhysical) BindPhysicalRange(*node);
  memnode_list.push_back(memnode);
  cpunode_list.push_back(node->local_id);
}

void Configurator::DeriveBandwidthSettings() {
  iter = iter != 0 ? iter + kBandwidthWarmUp : kBandwidthIter;
  if (mem_size != -1 && mem_size < kMinBandwidthMiB * kMiB) {
    warn_small("bandwidth", kMinBandwidthMiB, "MiB");
  }
  if (read == 0 && write == 0) read = 1;
  if (!stream && read < write) {
    RejectWithUsage(
        "Invalid r/w ratio. If not use non-temporal-write, read ratio must be larger than write "
        "ratio\n");
  }
  if (bandwidth_local == 1 && no_memnode) {
    RejectWithUsage("Invalid options. -T need memory bind (-M)\n");
  }
}

void Configurator::DeriveLatencySettings() {
  iter = iter != 0 ? iter + kLatencyWarmUp : kLatencyIter;
  if (mem_size == -1) {
    mem_size = kMinLatencyGiB << 30;
  } else if (mem_size < kMinLatencyGiB << 30) {
    warn_small("latency", kMinLatencyGiB, "GiB");
  }
  if (mem_mode == kMemDevdax) RoundToDevice();
}

// A device refuses to map what is no multiple of its alignment.
void Configurator::RoundToDevice() {
  const int64_t alignment = dax_alignment(path);
  if (alignment == 0 || mem_size % alignment == 0) return;
  const int64_t rounded = mem_size / alignment * alignment;
  if (rounded == 0) {
    Fatal() << "Memory size of " << mem_size << " Byte is smaller than the alignment of " << path
            << ", " << alignment << " Byte. Set a multiple of it with -m\n";
  }
  Warn() << "Memory size of " << mem_size << " Byte is rounded down to " << rounded
         << " Byte, a multiple of the alignment of " << path << ", " << alignment << " Byte\n";
  mem_size = rounded;
}

void Configurator::DeriveTargets() {
  if (num_targets > 0) {
    if (mem_mode == kMemPhysical && memnode != -1 && mem_size != -1) CheckPhysicalEnd();
    return;
  }
  if (no_memnode) {
    memnode_list = {0};
    cpunode_list = {-1};
  } else if (mem_mode == kMemNuma) {
    FindCpulessNodes();
  } else if (mem_mode == kMemPhysical) {
    FindCpulessRanges();
  }
  if (memnode_list.empty()) Fatal() << "Failed to find heterogenous memory devices\n";
  num_targets = static_cast<int32_t>(memnode_list.size());
}

void Configurator::CheckAllowedNodes() {
  if (mem_mode != kMemNuma || no_memnode) return;
  const MemoryNodes nodes = numa_info.nodes_of_process();
  const auto is_forbidden = [&](int node) {
    return std::ranges::binary_search(nodes.forbidden, node);
  };
  // -A measures what it finds and may use; -M names one node.
  const bool none_left = std::ranges::all_of(memnode_list, is_forbidden);
  for (size_t i = 0; i < memnode_list.size();) {
    const int node = memnode_list[i];
    if (!is_forbidden(node)) {
      ++i;
      continue;
    }
    const std::string outside =
        "Memory node " + std::to_string(node) + " is outside the cpuset of this process";
    if (none_left) {
      Fatal() << outside << ". Allowed nodes: " << vector_to_str_range(nodes.allowed, 0) << '\n';
    }
    Warn() << outside << " and is left out\n";
    memnode_list.erase(memnode_list.begin() + static_cast<ptrdiff_t>(i));
    cpunode_list.erase(cpunode_list.begin() + static_cast<ptrdiff_t>(i));
    num_targets -= 1;
  }
}

void Configurator::FindCpulessNodes() {
  for (size_t n = 0; n < numa_info.numa_list.size(); ++n) {
    const auto& node = numa_info.numa_list[n];
    if (!node.is_online || node.has_cpu) continue;
    memnode_list.push_back(static_cast<int32_t>(n));
    cpunode_list.push_back(node.local_id);
  }
}

const NumaInfo::numa_list_elem* Configurator::FindNode(int node) const {
  const auto& nodes = numa_info.numa_list;
  return node >= 0 && static_cast<size_t>(node) < nodes.size() ? &nodes[node] : nullptr;
}

void Configurator::RejectWithUsage(const std::string& message) const {
  Error() << message;
  Usage();
  std::exit(EXIT_FAILURE);
}

}  // namespace velmo
