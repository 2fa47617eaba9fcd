#include "mem/bench.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "app/console.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

using velmo_test::Outcome;
using velmo_test::RunForked;
using velmo_test::TempDir;

constexpr long kSize = 1 << 20;
const std::string kError = kErrorPrefix;

class TestBench final : public Bench {
 public:
  using Bench::Bench;
  void Run() override {}
};

Configurator ConfigFor(int32_t mem_mode, const std::string& path = "") {
  Configurator config;
  config.mem_mode = mem_mode;
  config.path = path;
  config.memnode_list = {0};
  config.cpunode_list = {-1};
  config.base_addr = {0};
  return config;
}

int AnAllowedCpu() {
  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  int cpu = 0;
  while (!CPU_ISSET(cpu, &allowed)) ++cpu;
  return cpu;
}

bool IsMapped(void* buf) {
  unsigned char resident;
  return mincore(buf, 4096, &resident) == 0;
}

TEST(Buffer, OfEachKindIsZeroedFaultedInAndReleased) {
  const TempDir dir;
  const std::string device = dir.Write("dax", std::string(kSize, 'x'));
  Configurator unbound = ConfigFor(kMemNuma);
  unbound.memnode_list = {100'000};  // counts only where memory is bound
  const Configurator configs[] = {
      unbound,
      ConfigFor(kMemDevdax, device),
      ConfigFor(kMemPmem, dir.path()),
      ConfigFor(kMemPmem, dir.path() + "/"),
  };
  for (const Configurator& config : configs) {
    SCOPED_TRACE(config.mem_mode);
    TestBench bench(config);
    void* buf = nullptr;
    bench.AllocMem(buf, kSize, 0);
    const auto* bytes = static_cast<const char*>(buf);
    std::vector<unsigned char> resident(kSize / 4096);
    ASSERT_EQ(mincore(buf, kSize, resident.data()), 0);
    for (const unsigned char page : resident) ASSERT_EQ(page & 1, 1);
    for (long i = 0; i < kSize; ++i) ASSERT_EQ(bytes[i], 0) << i;
    bench.ReleaseMem(buf, kSize);
    EXPECT_EQ(buf, bytes);
    EXPECT_FALSE(IsMapped(buf));
  }
  EXPECT_EQ(std::ifstream(device).get(), 0) << "the device itself is mapped, not a copy";
  const std::filesystem::directory_iterator entries(dir.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "files of the pmem kind are left";
}

TEST(Buffer, FailureToMapEndsTheProgram) {
  const TempDir dir;
  const bool has_devmem = std::fstream("/dev/mem").is_open();
  Configurator bound = ConfigFor(kMemNuma);
  bound.no_memnode = false;
  bound.memnode_list = {100'000};
  const struct {
    Configurator config;
    long size;
    const char* message;
  } cases[] = {
      {ConfigFor(kMemNuma), 1L << 60, "Failed to allocate memory\n"},
      {bound, kSize, "Failed to allocate memory on 100000 node\n"},
      {ConfigFor(kMemDevdax, dir.path() + "/none"), kSize,
       "Failed to allocate memory. Check path or dax device.\n"},
      {ConfigFor(kMemDevdax, "/dev/null"), kSize, "Failed to allocate memory.\n"},
      {ConfigFor(kMemPmem, dir.path() + "/none"), kSize,
       "Failed to allocate memory. Check file path or pmem.\n"},
      {ConfigFor(kMemPmem, dir.path()), kSize,
       "Failed to allocate memory. There is not enough free memory\n"},
      {ConfigFor(kMemPhysical), kSize,
       has_devmem ? "Failed to allocate memory. Check base address and kernel config "
                    "(CONFIG_STRICT_DEVMEM=n)\n"
                  : "Failed to allocate memory. Check kernel config (CONFIG_STRICT_DEVMEM=n)\n"},
  };
  for (const auto& c : cases) {
    const Outcome outcome = RunForked([&] {
      // Stands in for a file system without room.
      const rlimit limit{kSize / 2, kSize / 2};
      setrlimit(RLIMIT_FSIZE, &limit);
      std::signal(SIGXFSZ, SIG_IGN);
      TestBench bench(c.config);
      void* buf = nullptr;
      bench.AllocMem(buf, c.size, 1);  // the offset makes a physical address unaligned
    });
    EXPECT_EQ(outcome.status, 1) << c.message;
    EXPECT_EQ(outcome.err, kError + c.message);
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(Buffer, FailureToReleaseIsAWarningAndNullIsIgnored) {
  for (const int32_t kind : {kMemNuma, kMemDevdax, kMemPmem, kMemPhysical}) {
    const Outcome outcome = RunForked([&] {
      TestBench bench(ConfigFor(kind));
      void* buf = nullptr;
      bench.ReleaseMem(buf, 0);
      buf = reinterpret_cast<void*>(1);  // no page begins there
      bench.ReleaseMem(buf, kSize);
    });
    EXPECT_EQ(outcome.status, 0);
    const std::string stop = kind == kMemNuma ? "\n" : ".\n";
    EXPECT_EQ(outcome.err, kWarningPrefix + ("Failed to free memory" + stop));
  }
}

TEST(FreeMemSize, OfMemoryWithoutANodeIsFixedAndOfDevicesZero) {
  const std::string warning =
      std::string(kWarningPrefix) +
      "mem-numa_id: none. It is recommended that use -m option to set memory buffer size or use -M "
      "option to bind memory node.\n";
  const struct {
    int32_t kind;
    int64_t mem_size;
    const char* free;
    std::string out;
  } cases[] = {
      {kMemNuma, -1, "4294967296", warning},
      {kMemNuma, kSize, "4294967296", ""},
      {kMemDevdax, -1, "0", ""},
      {kMemPhysical, -1, "0", ""},
  };
  for (const auto& c : cases) {
    const Outcome outcome = RunForked([&] {
      Configurator config = ConfigFor(c.kind);
      config.mem_size = c.mem_size;
      std::cout << TestBench(config).GetFreeMemSize();
    });
    EXPECT_EQ(outcome.out, c.out + c.free);
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(FreeMemSize, IsAShareOfWhatIsFree) {
  const TempDir dir;
  TestBench pmem(ConfigFor(kMemPmem, dir.path()));
  pmem.free_ratio_ = 0.25;
  const auto room = static_cast<double>(std::filesystem::space(dir.path()).available);
  // Others may be writing.
  EXPECT_NEAR(static_cast<double>(pmem.GetFreeMemSize()), 0.25 * room, 0.01 * room);

  Configurator bound = ConfigFor(kMemNuma);
  bound.no_memnode = false;
  TestBench node(bound);
  const double memory = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * 4096;
  node.free_ratio_ = 1e-3;
  EXPECT_GT(node.GetFreeMemSize(), 0);
  EXPECT_LE(static_cast<double>(node.GetFreeMemSize()), 1e-3 * memory);
}

TEST(FreeMemSize, OfAMissingFileSystemEndsTheProgram) {
  const Outcome outcome =
      RunForked([] { TestBench(ConfigFor(kMemPmem, "/none")).GetFreeMemSize(); });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, kError + "Failed to get free space on /none\n" + std::string(14, ' ') +
                             "Check the pmem path.\n");
}

TEST(CpuNode, OfAKnownNodeAvoidsCpu0AndItsSiblings) {
  struct Cpu {
    int id;
    int core;
  };
  const struct {
    std::vector<Cpu> cpus;
    int chosen;
  } cases[] = {
      {{{4, 2}, {5, 3}}, 4},
      {{{0, 0}, {1, 1}}, 1},
      {{{0, 0}, {8, 0}, {3, 1}, {4, 2}}, 3},
      {{{0, 0}, {1, 0}}, 0},
      {{{0, 7}}, 0},
      {{{2, 1}, {0, 0}, {1, 0}}, 2},
  };
  for (const auto& c : cases) {
    Configurator config = ConfigFor(kMemNuma);
    config.cpunode_list = {2, 1};
    config.node_cpus = {{{1, 90, 90, 0}}, {}, {{1, 91, 91, 2}}};
    for (const Cpu& cpu : c.cpus) config.node_cpus[1].push_back({1, cpu.id, cpu.core, 1});
    const Outcome outcome = RunForked([&] {
      TestBench bench(config);
      bench.node_idx_ = 1;
      const NumaInfo::cpu_ctx cpu = bench.GetCPUNode();
      std::cout << cpu.cpu_id << " of " << cpu.numa_id;
    });
    EXPECT_EQ(outcome.out, std::to_string(c.chosen) + " of 1");
  }
}

TEST(CpuNode, ThatIsUnknownOrHasNoCpuIsSearchedOnce) {
  const std::string banners = std::string("\n") + kInfoPrefix +
                              "===== Find Local CPU node =====\n\n" + kInfoPrefix +
                              "===========   End   ===========\n\n";
  const int cpu = AnAllowedCpu();
  for (const int given : {-1, 0}) {
    Configurator config = ConfigFor(kMemNuma);
    config.mem_size = 3;  // the search has a buffer of its own
    config.cpunode_list = {given};
    config.node_cpus = {{}, {{1, cpu, 0, 1}}, {}};
    const Outcome outcome = RunForked([&] {
      TestBench bench(config);
      bench.free_mem_ = 2 << 20;
      bench.GetCPUNode();
      std::cout << bench.GetCPUNode().cpu_id << ' ' << bench.config_.cpunode_list[0];
    });
    EXPECT_EQ(outcome.out, banners + std::to_string(cpu) + " 1");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(CpuNode, OnAMachineWithoutCpusIsAnError) {
  const Outcome outcome = RunForked([] {
    Configurator config = ConfigFor(kMemNuma);
    config.node_cpus = {{}, {}};
    TestBench(config).GetCPUNode();
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err.find(kError + "Failed to find a CPU"), 0U) << outcome.err;
}

TEST(Spinners, RunOnTheirCpuUntilStopped) {
  TestBench bench(ConfigFor(kMemNuma));
  const NumaInfo::cpu_ctx cpu{1, AnAllowedCpu(), 0, 0};
  Bench::spin_flag_ = true;
  bench.StartSpinner(nullptr);
  bench.StartSpinner(&cpu);
  ASSERT_EQ(bench.threads_.size(), 2U);
  cpu_set_t allowed;
  pthread_getaffinity_np(bench.threads_[1].native_handle(), sizeof allowed, &allowed);
  EXPECT_EQ(CPU_COUNT(&allowed), 1);
  EXPECT_TRUE(CPU_ISSET(cpu.cpu_id, &allowed));
  bench.StopSpinners();
  EXPECT_TRUE(bench.threads_.empty());
  Bench::Spin();  // returns at once now
}

}  // namespace
}  // namespace velmo
