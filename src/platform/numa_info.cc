#include "platform/numa_info.h"

#include <numa.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <limits>

#include "app/console.h"
#include "app/text.h"
#include "platform/text_file.h"
#include "platform/usable.h"

namespace velmo {
namespace {

// Linux has at most 1,024 nodes on x86-64 (CONFIG_NODES_SHIFT); a larger number is damage, which
// must not decide how much is allocated.
constexpr int kMaxNode = 1023;

}  // namespace

bool same_core(const NumaInfo::cpu_ctx& a, const NumaInfo::cpu_ctx& b) {
  if (a.cpu_id == b.cpu_id) return true;
  return a.core_id != -1 && a.core_id == b.core_id && a.numa_id == b.numa_id;
}

NumaInfo::NumaInfo()
    : slit_path("/sys/firmware/acpi/tables/SLIT"),
      node_online_path("/sys/devices/system/node/online"),
      cpulist_fmt("/sys/devices/system/node/node%d/cpulist"),
      cpu_online_fmt("/sys/devices/system/cpu/cpu%d/online"),
      core_id_fmt("/sys/devices/system/cpu/cpu%d/topology/core_id"),
      configured_cpus([] { return sysconf(_SC_NPROCESSORS_CONF); }),
      max_node(numa_max_node),
      distance(numa_distance),
      cpus_of_process(velmo::usable_cpus),
      nodes_of_process([] { return memory_nodes(); }) {}

void NumaInfo::Parse() {
  usable_cpus = cpus_of_process();
  if (FindNumaNode() == 0) {
    Warn() << "Failed to get node information\n";
    return;
  }
  FindNearestNodes();
  parsed = true;
}

// Nodes are counted, not looked up: with gaps in the online list the highest nodes are neither
// visited nor candidates.
void NumaInfo::FindNearestNodes() {
  for (int i = 0; i < num_nodes; ++i) {
    if (!numa_list[i].is_online || numa_list[i].local_id != -1) continue;
    int best = std::numeric_limits<int>::max();
    int nearest = -1;
    for (int j = 0; j < num_nodes; ++j) {
      const int d = distance(i, j);
      if (j == i || d <= 0) continue;  // 0: not there
      if (d < best) {
        best = d;
        nearest = j;
      } else if (d == best) {
        nearest = -1;  // two nodes equally near: neither is the local one
      }
    }
    numa_list[i].local_id = nearest;
  }
}

int NumaInfo::FindNumaNode() {
  std::string online;
  if (!read_first_line(node_online_path, online)) return 0;
  UpdateCPUList();

  int prev = -1;
  const auto append_gap = [&](int end) {
    for (int node = prev + 1; node < end; ++node) PushNumaList(node, false);
  };
  for (const int node : str_range_to_vector(online)) {
    if (node > kMaxNode) {
      Warn() << "Node " << node << " in " << node_online_path << " is ignored: no node number is "
             << "larger than " << kMaxNode << '\n';
      break;
    }
    append_gap(node);
    PushNumaList(node, true);
    num_nodes += 1;
    prev = node;
  }
  append_gap(max_node() + 1);
  return 1;
}

void NumaInfo::UpdateCPUList() {
  const int count = static_cast<int>(configured_cpus());
  cpu_list.reserve(count);
  for (int cpu = 0; cpu < count; ++cpu) cpu_list.push_back(GetCPUInfo(cpu));
}

NumaInfo::cpu_ctx NumaInfo::GetCPUInfo(int cpu) const {
  cpu_ctx info{.is_online = 1, .cpu_id = cpu, .core_id = -1, .numa_id = 0};
  std::string line;
  if (!read_first_line(numbered_path(core_id_fmt, cpu), line)) return info;
  info.core_id = static_cast<int32_t>(leading_number(line).value_or(-1));
  if (IsOffline(cpu)) info.is_online = 0;
  return info;
}

bool NumaInfo::IsOffline(int cpu) const {
  std::string line;
  // CPU 0 usually has no such file: it cannot be taken offline.
  return read_first_line(numbered_path(cpu_online_fmt, cpu), line) && leading_number(line) == 0;
}

bool NumaInfo::IsUsable(int cpu) const {
  return usable_cpus.empty() || std::ranges::binary_search(usable_cpus, cpu);
}

long NumaInfo::UsableCount() const {
  return usable_cpus.empty() ? sysconf(_SC_NPROCESSORS_ONLN)
                             : static_cast<long>(usable_cpus.size());
}

void NumaInfo::PushNumaList(int node, bool read_cpulist) {
  numa_list_elem elem;
  if (!read_cpulist) {
    numa_list.push_back(elem);
    return;
  }
  elem.is_online = true;
  std::string line;
  if (read_first_line(numbered_path(cpulist_fmt, node), line)) {
    for (const int cpu : str_range_to_vector(line)) {
      // A list read while the machine changes may name a CPU that was not there a moment ago.
      if (static_cast<size_t>(cpu) >= cpu_list.size() || cpu_list[cpu].is_online == 0) continue;
      elem.cpu_list.push_back(cpu);
      cpu_list[cpu].numa_id = node;
    }
  } else {
    std::cout << kWarningPrefix << "Can't read node" << node << " cpulist information.\n";
  }
  if (!elem.cpu_list.empty()) {
    elem.has_cpu = true;
    elem.local_id = node;
  }
  numa_list.push_back(elem);
}

void NumaInfo::PrintInfo() const {
  std::cout << "\nNUMA Information\n" << kSeparator;
  for (size_t n = 0; n < numa_list.size(); ++n) {
    const numa_list_elem& node = numa_list[n];
    std::cout << "numa_id  : " << n << '\n'
              << "is_online: " << node.is_online << '\n'
              << "local_id : " << node.local_id << '\n'
              << "has_cpu  : " << node.has_cpu << '\n'
              << "cpu list : " << vector_to_str_range(node.cpu_list, 0) << '\n'
              << kSeparator;
  }
}

const NumaInfo::cpu_ctx& measuring_cpu(const std::vector<NumaInfo::cpu_ctx>& cpus) {
  const NumaInfo::cpu_ctx& first = cpus.front();
  if (first.cpu_id != 0) return first;
  // CPU 0 serves the system's interrupts.
  const auto other_core = std::find_if(
      cpus.begin(), cpus.end(), [&first](const auto& cpu) { return !same_core(cpu, first); });
  return other_core != cpus.end() ? *other_core : first;
}

std::vector<const NumaInfo::cpu_ctx*> cpus_to_keep_awake(
    const std::vector<std::vector<NumaInfo::cpu_ctx>>& nodes, const NumaInfo::cpu_ctx& measuring) {
  std::vector<const NumaInfo::cpu_ctx*> awake;
  for (const auto& cpus : nodes) {
    if (cpus.empty()) continue;
    const auto other_core = std::find_if(
        cpus.begin(), cpus.end(), [&](const auto& cpu) { return !same_core(cpu, measuring); });
    awake.push_back(other_core != cpus.end() ? &*other_core : nullptr);
  }
  return awake;
}

}  // namespace velmo
