#include "bandwidth/bandwidth.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <iomanip>
#include <regex>

#include "app/console.h"
#include "support/fake_machine.h"

namespace velmo {
namespace {

using velmo_test::Error;
using velmo_test::Warning;

constexpr int64_t kMiB = 1 << 20;
const int kHere = sched_getcpu();

// CPUs by their distance from kHere, two a node; 100 further is another thread of the same core.
// Those other than kHere need not exist.
std::vector<NumaInfo::cpu_ctx> Cpus(const std::vector<int>& distances) {
  std::vector<NumaInfo::cpu_ctx> cpus;
  for (const int d : distances) cpus.push_back({1, kHere + d, d % 100, d % 100 / 2});
  return cpus;
}

struct TestBandwidth final : Bandwidth {
  TestBandwidth() : Bandwidth({}) {
    config_.memnode_list = {0};
    free_mem_ = 2 * kMiB;
    caches_.folder_fmt = "";  // of any machine
    groups_root_ = "/none";
  }
  using LoadBench::ChooseLoadCpus, LoadBench::SizeBuffers, LoadBench::StartLoadSpinners,
      LoadBench::WarnOfLoad;
};

TEST(LoadBench, ChoosesCpusAndKeepsNodesBelowThemAwake) {
  const std::string few =
      "At least two CPUs are needed, one for the main thread and one for the load";
  const std::string fewer =
      "The number of online cpu is less than -j (--thread) argument\n                "
      "Maximum online cpu: ";
  const std::string here = std::to_string(kHere);
  const std::string shared =
      "The main thread shares CPU " + here + " with the only load thread: no other CPU is left";
  const std::string besides =
      "A CPU is needed for the load, besides CPU " + here + ", which measures latency";
  const std::vector<std::vector<int>> machine = {{1, 0}, {3, 2}, {}, {7, 6}};
  const struct {
    std::vector<int> listed;
    int thread, local, node, reserved;
    std::vector<std::vector<int>> nodes;
    std::string cpus, err;  // CPUs, nodes of the load, spinners; empty: an error
  } cases[] = {
      {{5, 0, 4}, 2, 0, -1, -1, {{0}, {}, {0}}, "0 5 on 2; 0", ""},
      {{5, 0, 3}, -1, 1, 2, -1, {{0}, {0}, {0}}, "0 3 5 on 1-2; 0", ""},
      {{7, 0}, -1, 0, -1, -1, {{0}, {0}, {}, {0}, {0}}, "0 7 on 3; 1", ""},
      {{}, 9, 0, 0, -1, machine, "0 1 2 3 6 7 on 0-1,3; 0", Warning(fewer + "6")},
      {{}, 3, 0, 0, -1, machine, "0 1 3 on 0-1; 0", ""},
      {{}, -1, 1, 0, -1, machine, "0 1 on 0; 0", ""},
      {{}, -1, 1, -1, -1, {{}, {0, 1}}, "0 1 on 0; 1", ""},
      {{}, -1, 0, -1, 4, {{}, {0, 4}}, "0 0 on 0; 1", Warning(shared)},
      {{}, -1, 0, -1, 4, {{0, 1}, {}, {4, 104}}, "0 1 on 0; 0", ""},
      {{}, -1, 0, -1, 4, {{0}, {}, {4, 104}}, "0 104 on 2; 0", ""},
      {{0, 1, 104}, -1, 0, -1, 4, {{}}, "0 1 104 on 0,2; 0", ""},
      {{}, -1, 0, -1, -1, {{}, {0}}, "", Error(few + ". There is: " + here)},
      {{}, 2, 0, -1, 0, {{0}}, "", Warning(fewer + "0") + Error(besides)},
  };
  for (const auto& c : cases) {
    const auto outcome = velmo_test::RunForked([&] {
      TestBandwidth b;
      b.config_.load_cpu = Cpus(c.listed);
      b.config_.thread = c.thread;
      b.config_.bandwidth_local = c.local;
      b.config_.cpunode_list = {c.node};
      for (const auto& node : c.nodes) b.config_.node_cpus.push_back(Cpus(node));
      const auto reserved = Cpus({c.reserved});
      b.ChooseLoadCpus(c.reserved < 0 ? nullptr : reserved.data());
      b.StartLoadSpinners();
      std::string cpus;
      for (const int cpu : b.bw_cpus_) cpus += std::to_string(cpu - kHere) + ' ';
      cpus += "on " + b.bw_numa_str_ + "; " +
              std::to_string(b.spinners_ ? b.spinners_->threads().size() : 0);
      b.StopSpinners();
      if (cpus != c.cpus || sched_getcpu() != kHere) _exit(9);
    });
    EXPECT_EQ(outcome.status, c.cpus.empty() ? 1 : 0) << &c - cases;
    EXPECT_EQ(outcome.err, c.err) << &c - cases;
  }
}

TEST(LoadBench, SizesBuffers) {
  const int64_t ram = sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE);
  const std::string full = Warning("Total memory is larger than free space.");
  const std::string lack = kErrorPrefix + std::string("Not enough free memory for the ratio ");
  const std::string from = kWarningPrefix + std::string("Memory size of ");
  const std::string to = " Byte does not hold one pass of the load, raised to ";
  const Mix r1{1, 0, 0}, r3{3, 1, 1};
  constexpr int32_t kMax = 0x7fffffff;
  const struct {
    int kind;  // 0: no memory node, 1: node, 4: physical range
    int64_t size, free;
    std::vector<Mix> mixes;
    int64_t expected;  // with four regions; 0: an error
    std::string err;   // how it begins
  } cases[] = {
      {1, kMiB, 4 * kMiB, {r1}, kMiB, ""},
      {1, kMiB + 1, 4 * kMiB + 3, {r1}, 0, full + lack + "1:0, which needs 2 MiB"},
      {1,
       9 * kMiB - 1,
       21 * kMiB,
       {r1},
       4 * kMiB,
       full + Warning("The size of each of 4 regions is lowered from 9 MiB to 4 MiB: no more is "
                      "used than 80 % of what is free of the memory")},
      {1, -1, 21 * kMiB, {r1}, 4 * kMiB, ""},
      {1, -1, 0, {r1}, 0, lack},
      {4, -1, 0, {r1}, 100 * kMiB, ""},
      {4, -1, 0, {{1601, 0, 1}}, 102 * kMiB, from + "104857600" + to + "106954752 Byte (102 MiB)"},
      {0, 786'433, 8 * kMiB, {r1, r3, r1}, 786'432, ""},
      {0, 786'431, 8 * kMiB, {r1, r3}, 2 * kMiB, from + "786431" + to + "2097152 Byte (2 MiB)"},
      {0, 786'431, 8 * kMiB - 1, {r3, r1}, 0, lack + "3:1, which needs 2 MiB"},
      {0, kMiB, 4096 * kMiB, {{1, kMax, 1}}, 0, lack + "1:2147483647, which needs 134217728 MiB"},
      {0,
       ram / 4 + 64,
       4096 * kMiB,
       {r1},
       0,
       Error("Memory size is larger than the machine's memory of " + std::to_string(ram / kMiB) +
             " MiB: 4 regions of " + std::to_string((ram / 4 + 64) / kMiB) + " MiB")},
  };
  for (const auto& c : cases) {
    const auto outcome = velmo_test::RunForked([&c] {
      TestBandwidth b;
      b.thread_num_ = 3;
      b.config_.mem_size = c.size;
      b.config_.no_memnode = c.kind != 1;
      b.config_.mem_mode = c.kind == 4 ? kMemPhysical : kMemNuma;
      b.SizeBuffers(c.mixes, c.free, 0);
      if (b.buf_size_ != c.expected) _exit(9);
    });
    EXPECT_EQ(outcome.status, c.expected == 0 ? 1 : 0) << &c - cases;
    EXPECT_EQ(outcome.err.substr(0, c.err.size()), c.err) << &c - cases;
    EXPECT_EQ(outcome.err.empty(), c.err.empty()) << &c - cases;
  }
}

TEST(LoadBench, WarnsOfADelayThatSpoilsTheLoadAndOfCaches) {
  const velmo_test::TempDir caches;
  const auto outcome = velmo_test::RunForked([&] {
    TestBandwidth b;
    b.caches_.folder_fmt = velmo_test::WriteCache(caches, kHere);
    b.thread_num_ = 2;
    b.bw_cpus_ = {kHere, kHere};
    for (const int delay : {20'000'000, 40'000'000, 0}) {
      b.buf_size_ = delay > 0 ? 4 * kMiB : 2 * kMiB - 1;
      b.config_.bw_delay = delay;
      for (const Mix& mix : {Mix{1, 0, 0}, Mix{5, 3, 0}}) b.WarnOfLoad({mix}, delay != 20'000'000);
    }
  });
  const std::string leaves = "A delay of 40000000 turns leaves each load thread about ";
  const std::string steps =
      " Byte a second in fewer than 100 steps, too coarse for MB/s to tell. Choose a smaller one "
      "with -D";
  const std::string told = Warning(leaves + "12800" + steps) +
                           Warning(leaves + "26214400" + steps) + kWarningPrefix + "The ratio 5:3 ";
  EXPECT_TRUE(outcome.err.starts_with(told)) << outcome;
  EXPECT_NE(
      outcome.err.find("256 bytes, and lowers the load far less than that of a mix with one\n" +
                       (kWarningPrefix + std::string("The load touches 2047 KiB"))),
      std::string::npos)
      << outcome;
}

// What a run on `cpus` with the further options of `set` says; its log is in `dir`.
velmo_test::Outcome RunIn(const velmo_test::TempDir& dir, const std::vector<int>& cpus,
                          void (*set)(Configurator&)) {
  return velmo_test::RunForked([&] {
    TestBandwidth b;
    b.config_.load_cpu = Cpus(cpus);
    b.config_.num_targets = 1;
    set(b.config_);
    std::filesystem::current_path(dir.path());
    std::cout << std::fixed << std::setprecision(2);
    b.Run();
  });
}

TEST(Bandwidth, PrintsAndLogsWhatItMeasures) {
  const velmo_test::TempDir dir;
  const auto outcome = RunIn(dir, {0, 0}, [](Configurator& c) {
    c.mem_size = 3 * kMiB / 2;
    c.iter = 6;
    c.read = 2;
    c.write = 1;
    c.stream = c.full = true;
  });
  const std::string id = std::to_string(kHere);
  const std::string lines = "cpu-numa_id: 0\nBW threads cpu_id: " + id +
                            "\nmain thread cpu_id: " + id +
                            "\nmem-numa_id: none (follow the system allocation)\n";
  const std::string size = "memory size: 1.50 MiB/thread\n";
  const std::string threads = "the number of BW threads: 1\n";
  const std::string mix = "Write Ratio: 1\nUsing non-temporal write\n";
  std::smatch value;
  const std::string number = R"(: (\d+\.\d\d) MB/s\n)";
  ASSERT_TRUE(std::regex_search(outcome.out, value,
                                std::regex("#1" + number + "#2" + number + "Avg. BW" + number)))
      << outcome;
  const double one = std::stod(value[1]), two = std::stod(value[2]);
  EXPECT_TRUE(one > 1 && one < 1e7) << "not in MB/s";
  EXPECT_NEAR(std::stod(value[3]), (one + two) / 2, 0.02);
  const std::string results = value.str() + "Max. BW: " + value.str(one < two ? 2 : 1) +
                              " MB/s\nMin. BW: " + value.str(one < two ? 1 : 2) + " MB/s\n";
  EXPECT_EQ(outcome.out, "Measure Memory Bandwidth\n" +
                             (kSeparator + ("Memory #0 Result\n" + lines)) + size + threads +
                             "(Sequential)\n\nRead Ratio : 2 " + mix + results + kSeparator);
  EXPECT_EQ(outcome.err, "");
  const std::filesystem::path log = *std::filesystem::directory_iterator(dir.path());
  EXPECT_TRUE(std::regex_match(log.filename().string(),
                               std::regex(R"(mem0_BW_result_2r1wn_\d{8}_\d{6}\.txt)")))
      << log;
  EXPECT_EQ(velmo_test::ReadAll(log), "Bandwidth\nUsing Full Instruction\n" + size +
                                          "chunk size : 16 Byte\n" + lines + threads +
                                          "\nRead Ratio: 2 " + mix + "\n" + results);
}

TEST(Bandwidth, DoesAFixedAmountOfWorkForAnAnalyzer) {
  const velmo_test::TempDir dir;
  const auto outcome = RunIn(dir, {0, 0, 0}, [](Configurator& c) {
    c.bandwidth_local = 1;
    c.mem_size = kMiB;
    c.use_pa_set = true;
    c.use_pa = 3;
    c.read = 1;
  });
  const std::string ready =
      kInfoPrefix + std::string("BW thread setting is complete. ") + "Start Protocol Analyzer.\n\n";
  const size_t at = outcome.out.find(ready);
  ASSERT_NE(at, std::string::npos) << outcome;
  EXPECT_TRUE(outcome.out.starts_with("Measure Local Memory Bandwidth\n")) << outcome;
  const std::string results = outcome.out.substr(at + ready.size());
  const std::string thread = "Thread +" + std::to_string(kHere) + R"( BW: (\d+\.\d\d) MB/s\n)";
  std::smatch value;
  ASSERT_TRUE(std::regex_match(
      results, value,
      std::regex(thread + thread + R"(\nSum of BW: (\d+\.\d\d) MB/s\n)" + kSeparator)))
      << results;
  const double one = std::stod(value[1]), two = std::stod(value[2]);
  EXPECT_TRUE(one > 1 && two > 1) << "not in MB/s";
  EXPECT_NEAR(std::stod(value[3]), one + two, 0.02);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << "no log";
}

}  // namespace
}  // namespace velmo
