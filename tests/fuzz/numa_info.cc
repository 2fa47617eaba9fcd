// The node and CPU readers. Lines of the input: the list of online nodes, the CPU lists of nodes 0
// to 3, then core_id and online of CPUs 0 to 3 in turn. "absent" stands for no file.

#include "platform/numa_info.h"

#include "fuzz/harness.h"

using velmo_fuzz::Require;

constexpr int kFiles[] = {100, 110, 111, 112, 113, 120, 130, 121, 131, 122, 132, 123, 133};

static void CheckNode(const velmo::NumaInfo& info, int n) {
  const auto& node = info.numa_list[n];
  Require(node.has_cpu == !node.cpu_list.empty(), "has_cpu");
  Require(node.is_online || (!node.has_cpu && node.local_id == -1), "an offline node is empty");
  for (const int cpu : node.cpu_list) {
    Require(cpu >= 0 && cpu < 4 && info.cpu_list[cpu].is_online == 1, "a node's CPUs are online");
  }
  Require(!node.has_cpu || node.local_id == n, "a node with CPUs is its own local node");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> lines = velmo_fuzz::Lines({data, data + size});
  lines.resize(std::size(kFiles), "absent");
  for (size_t i = 0; i < std::size(kFiles); ++i) {
    lines[i] == "absent" ? (void)close(kFiles[i]) : velmo_fuzz::WriteFile(kFiles[i], lines[i]);
  }
  velmo::NumaInfo info;
  info.node_online_path = "/proc/self/fd/100";
  info.cpulist_fmt = "/proc/self/fd/11%d";
  info.core_id_fmt = "/proc/self/fd/12%d";
  info.cpu_online_fmt = "/proc/self/fd/13%d";
  info.configured_cpus = [] { return 4L; };
  info.max_node = [] { return 3; };
  info.distance = [](int from, int to) { return 10 + 7 * std::abs(from - to) % 13; };
  info.cpus_of_process = [] { return std::vector<int>(); };
  velmo_fuzz::Run([&info] {
    info.Parse();
    info.PrintInfo();
    if (!info.parsed) return;
    const auto nodes = static_cast<int>(info.numa_list.size());
    Require(nodes >= 4 && nodes <= 1024 && info.num_nodes <= nodes, "number of nodes");
    Require(info.cpu_list.size() == 4, "every configured CPU has a record");
    for (const auto& cpu : info.cpu_list) {
      Require(cpu.numa_id >= 0 && cpu.numa_id < nodes, "a CPU's node");
    }
    for (int n = 0; n < nodes; ++n) CheckNode(info, n);
  });
  return 0;
}
