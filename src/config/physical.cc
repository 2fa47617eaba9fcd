// The physical mode, memory by address through /dev/mem, as far as the command line goes. No option
// selects it.

#include <algorithm>

#include "config/configurator.h"

namespace velmo {
namespace {

constexpr int64_t kGiB = int64_t{1} << 30;
// What the kernel may use at the start of a physical range is left alone.
constexpr uint64_t kPhysicalOffset = kGiB;

}  // namespace

void Configurator::BindPhysicalRange(const NumaInfo::numa_list_elem& node) {
  if (node.has_cpu) {
    RejectWithUsage(
        "Invalid memnode. Check memnode value.\n"
        "              physical mode can only use heterogenous memory.\n");
  }
  for (const auto& range : mem_info.mem_list) {
    if (range.logical_node != memnode) continue;
    base_addr.push_back(static_cast<int64_t>(range.base_address + kPhysicalOffset));
    break;
  }
  if (base_addr.empty()) RejectWithUsage("Invalid memnode. No memory range of it is known.\n");
}

// A physical range must hold what the run will map: the load threads' regions for reading and for
// writing, for loaded latency with a first GiB each.
void Configurator::CheckPhysicalEnd() const {
  const auto range = std::find_if(mem_info.mem_list.begin(), mem_info.mem_list.end(),
                                  [this](const MemInfo::mem_list_elem& candidate) {
                                    return candidate.logical_node == memnode;
                                  });
  // In double: the product may exceed 64 bits, and no machine has addresses beyond 2^53.
  const double end = static_cast<double>(range->base_address) + static_cast<double>(range->length);
  const auto size = static_cast<double>(mem_size);
  double needed = size;
  if (run_loaded_latency) {
    needed = 2 * (thread * size + kGiB);
  } else if (run_bandwidth) {
    needed = 2 * thread * size;
  }
  if (end <= static_cast<double>(base_addr[0]) + needed) {
    RejectWithUsage("Invalid base-address. Change base address or memory size\n");
  }
}

void Configurator::FindCpulessRanges() {
  for (const auto& range : mem_info.mem_list) {
    const NumaInfo::numa_list_elem* node = FindNode(range.logical_node);
    if (node != nullptr && node->has_cpu) continue;
    base_addr.push_back(static_cast<int64_t>(range.base_address + kPhysicalOffset));
    memnode_list.push_back(range.logical_node);
    cpunode_list.push_back(node != nullptr ? node->local_id : -1);
  }
}

}  // namespace velmo
