#include "survey/machine.h"

#include <gtest/gtest.h>

#include "support/fake_machine.h"

namespace velmo {
namespace {

using Files = std::vector<std::pair<std::string, std::string>>;

// Node 1 has no CPUs and is damaged here and there; CPU 1 has another governor.
const Files kServer = {
    {"proc/cpuinfo",
     "processor\t: 0\nvendor_id\t: AuthenticAMD\ncpu family\t: 25\nmodel\t\t: x\n"
     "model name\t: Some: CPU\n\nprocessor\t: 1\nstepping\t: 9\n"},
    {"sys/class/dmi/id/product_name", "Standard PC (QEMU)\n"},
    {"sys/devices/system/cpu/online", "0-2\n"},
    {"sys/devices/system/cpu/cpu0/topology/physical_package_id", "0\n"},
    {"sys/devices/system/cpu/cpu0/topology/core_id", "0\n"},
    {"sys/devices/system/cpu/cpu1/topology/physical_package_id", "0\n"},
    {"sys/devices/system/cpu/cpu1/topology/core_id", "0\n"},
    {"sys/devices/system/cpu/cpu2/topology/physical_package_id", "1\n"},
    {"sys/devices/system/cpu/cpu2/topology/core_id", "0\n"},
    {"sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", "powersave\n"},
    {"sys/devices/system/cpu/cpu1/cpufreq/scaling_governor", "performance\n"},
    {"sys/devices/system/cpu/cpu2/cpufreq/scaling_governor", "powersave\n"},
    {"sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq", "2000000\n"},
    {"sys/devices/system/cpu/cpu1/cpufreq/scaling_max_freq", "3000000\n"},
    {"sys/devices/system/cpu/cpu2/cpufreq/scaling_max_freq", "1000000\n"},
    {"sys/devices/system/cpu/intel_pstate/no_turbo", "1\n"},
    {"sys/devices/system/cpu/cpu0/cpuidle/state0/name", "C1\n"},
    {"sys/devices/system/cpu/cpu0/cpuidle/state0/latency", "2\n"},
    {"sys/devices/system/cpu/cpu0/cpuidle/state0/disable", "0\n"},
    {"sys/devices/system/cpu/vulnerabilities/l1tf", "Not affected\n"},
    {"sys/devices/system/node/online", "0-1\n"},
    {"sys/devices/system/node/node0/cpulist", "0-2\n"},
    {"sys/devices/system/node/node0/distance", "10 20\n"},
    {"sys/devices/system/node/node0/meminfo", "Node 0 MemTotal: 8 kB\nNode 0 MemFree: 3 kB\n"},
    {"sys/devices/system/node/node1/cpulist", "\n"},
    {"sys/devices/system/node/node1/meminfo", "Node 1 MemTotal: 99999999999999999999 kB\n"},
    {"sys/devices/system/node/node1/access0/initiators/node0/uevent", ""},
    {"sys/devices/system/node/node1/access0/initiators/read_latency", "250\n"},
    {"sys/kernel/mm/hugepages/hugepages-2048kB/nr_hugepages", "7\n"},
    {"sys/kernel/mm/hugepages/hugepages-2048kB/free_hugepages", "5\n"},
    {"sys/kernel/mm/transparent_hugepage/enabled", "always [madvise] never\n"},
    {"proc/sys/kernel/numa_balancing", "lots\n"},
    {"proc/self/mountinfo",
     "1 2 0:3 /docker/a /groups/mem rw - cgroup cgroup rw,memory\nx\n"
     "4 2 0:3 / /groups/all rw shared:1 - cgroup2 cgroup2 rw\n"},
    {"proc/self/cgroup", "3:memory:/docker/a/inner\n0::/a/b\nx\n"},
    {"groups/mem/memory.limit_in_bytes", "4096\n"},
    {"groups/mem/inner/memory.limit_in_bytes", "9223372036854771712\n"},
    {"groups/all/a/b/cpu.max", "max 100000\n"},
    {"groups/all/a/cpu.max", "50000 100000\n"},
    {"groups/all/cpuset.cpus.effective", "0-1\n"},
};

Json Describe(const Files& files) {
  const velmo_test::TempDir dir;
  for (const auto& [name, text] : files) dir.Write(name, text);
  MachineSources from;
  from.root = dir.path();
  from.msr = dir.path();
  const velmo_test::FakeMsr registers;
  CpuInfo cpu;
  cpu.GetCpuInfo();
  find_offset(cpu);
  registers.Set(prefetch_register().address, 1 << 9 | 1);
  if (!files.empty()) from.msr = registers.file;
  from.search_path = dir.path();
  from.cpuid = [](uint32_t) { return CpuInfo::Cpuid{}; };
  return describe_machine(from);
}

TEST(Machine, IsDescribedByWhatCanBeRead) {
  const Json machine = Describe(kServer);
  const std::pair<const char*, Json> rows[] = {
      {"/hypervisor", "QEMU"},
      {"/processor/name", "Some: CPU"},
      {"/processor/family", 25},
      {"/processor/model/value", nullptr},
      {"/processor/stepping/value", nullptr},
      {"/sockets", 2},
      {"/cores", 2},
      {"/threads", 3},
      {"/frequency/governor", "performance, powersave"},
      {"/frequency/max_hz", 3000000000},
      {"/frequency/min_hz/value", nullptr},
      {"/frequency/boost", "off"},
      {"/idle_states", {{{"name", "C1"}, {"latency_us", 2}, {"disabled", false}}}},
      {"/mitigations", {{"l1tf", "Not affected"}}},
      {"/prefetchers/state", "partly off"},
      {"/nodes/0/type", "DRAM"},
      {"/nodes/0/size_bytes", 8192},
      {"/nodes/0/free_bytes", 3072},
      {"/nodes/0/distances", {10, 20}},
      {"/nodes/1/type", "without CPUs"},
      {"/nodes/1/size_bytes/value", nullptr},
      {"/nodes/1/access_classes/0/initiators", Json::array({0})},
      {"/nodes/1/access_classes/0/read_latency_ns", 250},
      {"/huge_pages/transparent", "madvise"},
      {"/huge_pages/pools", {{{"size_bytes", 2 << 20}, {"total", 7}, {"free", 5}}}},
      {"/numa_balancing/value", nullptr},
      {"/limits/cpu_quota", 0.5},
      {"/limits/memory_bytes", 4096},
      {"/limits/cpuset_cpus", "0-1"},
      {"/limits/cpuset_mems/value", nullptr},
  };
  for (const auto& [at, expected] : rows) {
    EXPECT_EQ(machine.at(Json::json_pointer(at)), expected) << at;
  }
  const Json nothing = Describe({});
  for (const auto& [member, value] : nothing.items()) {
    if (member == "hypervisor") continue;
    EXPECT_NE(value.dump().find("reason"), std::string::npos) << member << value;
  }
}

}  // namespace
}  // namespace velmo
