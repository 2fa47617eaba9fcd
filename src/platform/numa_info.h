// The machine's NUMA nodes and logical CPUs, from sysfs and libnuma.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/usable.h"

namespace velmo {

class NumaInfo {
 public:
  // One logical CPU.
  struct cpu_ctx {
    int32_t is_online;  // 0 or 1
    int32_t cpu_id;
    int32_t core_id;  // physical core; -1 when unknown
    int32_t numa_id;  // node whose cpulist names the CPU; 0 until a node claims it
  };

  // One node. A node with CPUs is local to itself.
  struct numa_list_elem {
    bool is_online = false;
    bool has_cpu = false;       // at least one of its CPUs is online
    int32_t local_id = -1;      // nearest node of a node without CPUs; -1 when there is none
    std::vector<int> cpu_list;  // online CPUs in the order of the node's cpulist
  };

  // Reads nothing.
  NumaInfo();

  // Fills the tables. A machine whose online-node list cannot be read is warned about and leaves
  // them empty, with `parsed` false.
  void Parse();

  // Fills the CPU and the node table: 1 on success, 0 when the online-node list cannot be opened.
  int FindNumaNode();

  // Fills the CPU table with every configured CPU, online or not.
  void UpdateCPUList();

  // Reads the record of one CPU. A CPU without a topology directory counts as online.
  cpu_ctx GetCPUInfo(int cpu) const;

  // Appends the record of `node`: an offline one, or with `read_cpulist` the online node with its
  // CPUs. An unreadable cpulist is warned about; the node is online all the same.
  void PushNumaList(int node, bool read_cpulist);

  // Whether the kernel says that `cpu` is offline, be its topology there or not.
  bool IsOffline(int cpu) const;

  // Whether the process may be pinned to `cpu`. True where that is not known.
  bool IsUsable(int cpu) const;

  // How many CPUs the process may be pinned to; where that is not known, those that are online.
  long UsableCount() const;

  // Prints every node, offline placeholders included, on standard output.
  void PrintInfo() const;

  int num_nodes = 0;                      // nodes named in the online-node list
  std::vector<numa_list_elem> numa_list;  // index: node number, 0 .. highest node
  std::vector<cpu_ctx> cpu_list;          // index: CPU number
  std::vector<int> usable_cpus;           // that the process may be pinned to; empty: not known
  bool parsed = false;

  std::string slit_path;
  std::string node_online_path;
  std::string cpulist_fmt;
  std::string cpu_online_fmt;
  std::string core_id_fmt;

  // Layout of the ACPI System Locality Information Table, in bytes (ACPI 6.4, 5.2.17). Distances
  // are taken from libnuma, which reads them from sysfs.
  size_t slit_header_length = 36;
  size_t slit_localities_width = 8;
  size_t slit_distance_width = 1;

  // What is asked of the C library and libnuma rather than read from a file.
  long (*configured_cpus)();
  int (*max_node)();
  int (*distance)(int, int);
  std::vector<int> (*cpus_of_process)();  // platform/usable.h; called once, by Parse
  MemoryNodes (*nodes_of_process)();      // the same; called where a node is chosen

 private:
  void FindNearestNodes();
};

// Whether `a` and `b` are the same CPU or hyper-threads of one core: of one node, with one core
// number that is known.
bool same_core(const NumaInfo::cpu_ctx& a, const NumaInfo::cpu_ctx& b);

// The CPU of a node to measure latency from, of its usable ones (not empty): not CPU 0 nor a
// hyper-thread sibling of it where there is another.
const NumaInfo::cpu_ctx& measuring_cpu(const std::vector<NumaInfo::cpu_ctx>& cpus);

// The CPUs, one of each of `nodes` that has any, to keep awake while `measuring` measures: not of
// its core; null for a node that has no other.
std::vector<const NumaInfo::cpu_ctx*> cpus_to_keep_awake(
    const std::vector<std::vector<NumaInfo::cpu_ctx>>& nodes, const NumaInfo::cpu_ctx& measuring);

}  // namespace velmo
