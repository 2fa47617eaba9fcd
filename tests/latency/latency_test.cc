#include "latency/latency.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "platform/prefetch.h"
#include "support/fake_machine.h"

namespace velmo {
namespace {

TEST(Latency, MeasuresDelayedThenBurstWithThePrefetchersOff) {
  constexpr long kRegister = 0x1A4;  // of the prefetchers
  const velmo_test::TempDir dir, caches;
  const std::string msr = dir.Write("msr", std::string(kRegister, ' ') + "o       ");
  const auto value = [&msr] { return std::ifstream(msr).seekg(kRegister).get(); };
  const int here = sched_getcpu();
  dir.Write("root/proc/self/mountinfo", "1 2 0:3 / /g rw - cgroup2 g rw\n");
  dir.Write("root/g/memory.max", "3145728");
  const auto outcome = velmo_test::RunForked([&] {
    std::filesystem::current_path(dir.path());
    MSR_PATH = msr.c_str();
    (std::cout << std::fixed).precision(2);
    Latency latency{Configurator()};
    latency.config_.num_targets = 1;
    latency.caches_.folder_fmt = velmo_test::WriteCache(caches, here);
    latency.config_.memnode_list = {-1};
    latency.config_.mem_size = 3 << 20;
    latency.groups_root_ = dir.path() + "/root";
    latency.config_.latency_cpu = {1, here, 0, 5};
    latency.config_.node_cpus = {{}, {{1, here, 0, 1}}};
    latency.config_.cpu_info.vendor = CpuInfo::kIntel;
    latency.config_.delayed_latency = latency.config_.burst_latency = true;
    latency.config_.delay = 1;
    std::atomic<bool> off = false;
    std::thread watcher([&] {
      while (!off) off = value() == 0x2F;
    });
    latency.Run();
    if (!off) _exit(8);  // the prefetchers were on while measuring
    watcher.join();
  });
  EXPECT_EQ(outcome.status, 0) << outcome;
  const std::string why =
      "no more is used than 80 % of what the memory limit of the control group leaves";
  const std::string cached =
      "The chain touches 2048 KiB of memory, less than 4 times the 1024 KiB of last-level cache "
      "of its CPUs: the result is that of caches, in part. It cannot be larger: ";
  EXPECT_EQ(outcome.err, velmo_test::Warning("Memory size is lowered from 3 MiB to 2 MiB: " + why) +
                             velmo_test::Warning(cached + why));
  EXPECT_EQ(value(), 'o');
  const std::string results =  // there are no samples
      "\n\nSample: 0\nAvg.  : -?[0-9.]+ ns\nMedian: 0 ns\n99th  : 0 ns\n99.9th: 0 ns\n";
  const std::regex expected(
      "Measure Memory Latency\n\n-{40}\nMemory #0 Result\ncpu-numa_id: 5\n"
      "mem-numa_id: none \\(follow the system allocation\\)\ncpu_id     : " +
      std::to_string(here) +
      "\nmemory size: 2\\.00 MiB\nchunk size : 16 Byte\nstride size: 64 Byte\n"
      "\nStart Delayed Latency" +
      results + "\nStart Burst Latency \\(Sequential\\)" + results);
  EXPECT_TRUE(std::regex_match(outcome.out, expected)) << outcome;
  std::set<std::string> files;
  for (const auto& file : std::filesystem::directory_iterator(dir.path())) {
    files.insert(file.path().filename().string().substr(0, 17));
  }
  EXPECT_EQ(files,
            (std::set<std::string>{"mem0_seq_burst-la", "mem0_seq_delayed-", "msr", "root"}));
}

}  // namespace
}  // namespace velmo
