// A machine made of files: nodes, CPUs, firmware tables and the registers of a CPU.

#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <utility>

#include "config/configurator.h"
#include "platform/prefetch.h"
#include "support/subprocess.h"

namespace velmo_test {

inline std::string LittleEndian(uint64_t value, size_t bytes) {
  return {reinterpret_cast<const char*>(&value), bytes};
}

// The bytes before the first subtable of an SRAT.
inline const std::string kSratHeader = "SRAT" + std::string(44, '\0');

// A Memory Affinity subtable; `length_byte` is what its second byte claims.
inline std::string Range(int32_t domain, uint64_t base = 1, uint64_t length = 1,
                         uint8_t length_byte = 40) {
  return '\1' + LittleEndian(length_byte, 1) + LittleEndian(domain, 4) + LittleEndian(0, 2) +
         LittleEndian(base, 8) + LittleEndian(length, 8) + std::string(16, '\0');
}

// Four CPUs on a core each: 0 and 1 of node 0, 2 and 3 of node 1. Node 2 has none and is nearest to
// node 1; node 3 is offline. Memory ranges of proximity domain 0 (4 GiB at 4 GiB), 7 (node 2;
// 16 GiB at 64 GiB) and 17 (named by no boot line; 16 GiB at 128 GiB).
struct FakeMachine {
  FakeMachine() {
    files.Write("node/online", "0-2\n");
    files.Write("node/node0/cpulist", "0-1\n");
    files.Write("node/node1/cpulist", "2-3\n");
    files.Write("node/node2/cpulist", "\n");
    for (const std::string cpu : {"0", "1", "2", "3"}) {
      files.Write("cpu/cpu" + cpu + "/topology/core_id", cpu + "\n");
      if (cpu != "0") files.Write("cpu/cpu" + cpu + "/online", "1\n");
    }
    constexpr uint64_t kGiB = uint64_t{1} << 30;
    files.Write("SRAT", kSratHeader + Range(0, 4 * kGiB, 4 * kGiB) +
                            Range(7, 64 * kGiB, 16 * kGiB) + Range(17, 128 * kGiB, 16 * kGiB));
    files.Write("dmesg", "ACPI: SRAT: Node 0 PXM 0\nACPI: SRAT: Node 2 PXM 7\n");
  }

  // Makes `config` read this machine.
  void Install(velmo::Configurator& config) const {
    velmo::NumaInfo& info = config.numa_info;
    info.node_online_path = files.path() + "/node/online";
    info.cpulist_fmt = files.path() + "/node/node%d/cpulist";
    info.cpu_online_fmt = files.path() + "/cpu/cpu%d/online";
    info.core_id_fmt = files.path() + "/cpu/cpu%d/topology/core_id";
    info.configured_cpus = [] { return 4L; };
    info.cpus_of_process = [] { return std::vector{0, 1, 2, 3}; };
    info.nodes_of_process = [] { return velmo::MemoryNodes(); };
    info.max_node = [] { return 3; };
    info.distance = [](int from, int to) {
      constexpr int kRows[][4] = {
          {10, 21, 40, 20}, {21, 10, 30, 20}, {40, 30, 10, 30}, {20, 20, 15, 10}};
      return kRows[from][to];
    };
    config.mem_info.srat_path = files.path() + "/SRAT";
    config.mem_info.dmesg_path = files.path() + "/dmesg";
  }

  TempDir files;
};

// Caches::folder_fmt of a machine whose `cpu` has a last-level cache of 1 MiB, in `dir`.
inline std::string WriteCache(const TempDir& dir, int cpu) {
  const std::string folder = "cpu" + std::to_string(cpu) + "/index0/";
  for (const auto& [file, text] : {std::pair("level", "3"), {"type", "Unified"}, {"size", "1024K"}})
    dir.Write(folder + file, text);
  dir.Write(folder + "shared_cpu_list", std::to_string(cpu));
  return dir.path() + "/cpu%d/index%d";
}

// A sparse file that stands in for the msr device of CPU 3 while the object lives.
struct FakeMsr {
  ~FakeMsr() { velmo::MSR_PATH = previous; }
  void Set(uint64_t address, uint64_t value) const {
    std::fstream out(file, std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(address)) << LittleEndian(value, sizeof value);
  }
  uint64_t Get(uint64_t address) const {
    uint64_t value = 0;
    std::ifstream in(file, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(address)).read(reinterpret_cast<char*>(&value), 8);
    return value;
  }

  TempDir dir;
  std::string pattern = dir.path() + "/cpu%d/msr";
  std::string file = dir.Write("cpu3/msr", "");
  const char* previous = std::exchange(velmo::MSR_PATH, pattern.c_str());
};

}  // namespace velmo_test
