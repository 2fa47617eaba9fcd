#include "latency/bench.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <fstream>

#include "app/console.h"
#include "latency/probe_nearest_node.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

constexpr long kSize = 1 << 20;

struct TestBench final : Bench {
  explicit TestBench(int32_t mem_mode, const std::string& path = "", int node = -1) : Bench({}) {
    config_.mem_mode = mem_mode;
    config_.path = path;
    config_.no_memnode = node == -1;
    config_.memnode_list = {node};
  }
  void Run() override {}
  using Bench::CheckHoldsStride, Bench::WarnIfLowered;
};

TEST(Buffer, OfEachKindIsZeroedAndReleased) {
  const velmo_test::TempDir dir;
  const std::string device = dir.Write("dax", std::string(kSize, '\0'));
  const std::pair<int32_t, std::string> kinds[] = {
      {kMemNuma, ""}, {kMemDevdax, device}, {kMemPmem, dir.path()}};
  for (const auto& [kind, path] : kinds) {
    TestBench bench(kind, path);
    Buffer buffer = bench.AllocMem(kSize, -1, 0);
    for (long i = 0; i < kSize; ++i) ASSERT_EQ(buffer.bytes()[i], 0) << kind;
    buffer.bytes()[0] = 'x';
    EXPECT_TRUE(kind != kMemDevdax || std::ifstream(path).get() == 'x') << "a copy is under test";
    void* released = buffer.data();
    buffer = {};
    EXPECT_EQ(msync(released, kSize, MS_ASYNC), -1) << kind << " is still mapped";
  }
  const std::string used = dir.Write("used", "x" + std::string(kSize, '\0'));
  const auto refused =
      velmo_test::RunForked([&] { TestBench(kMemDevdax, used).AllocMem(1, -1, 0); });
  EXPECT_NE(refused.err.find("used is a file that holds data"), std::string::npos) << refused;
  EXPECT_EQ(std::ifstream(used).get(), 'x');
  std::filesystem::remove(used);
  std::filesystem::remove(device);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  // Once it is sealed, no hole can be punched into a file in memory.
  const int sealed = memfd_create("sealed", MFD_ALLOW_SEALING);
  ASSERT_EQ(ftruncate(sealed, kSize), 0);
  {
    TestBench bench(kMemDevdax, "/proc/self/fd/" + std::to_string(sealed));
    const Buffer buffer = bench.AllocMem(kSize, -1, 0);
    buffer.bytes()[kSize - 1] = 'x';
    ASSERT_EQ(fcntl(sealed, F_ADD_SEALS, F_SEAL_FUTURE_WRITE), 0);
  }
  char last = 'y';
  EXPECT_EQ(pread(sealed, &last, 1, kSize - 1), 1);
  EXPECT_EQ(last, 0);
  close(sealed);
}

TEST(Buffer, FailureToMapEndsTheProgram) {
  const velmo_test::TempDir dir, files;
  const std::string file = files.Write("file", "x");
  const std::string advice = ". Check path or dax device.";
  const std::string other = " is neither a dax device nor a file.";
  const std::string reason = advice + "\n              ";
  const std::tuple<int32_t, std::string, int, long, std::string> cases[] = {
      {kMemNuma, "", 100'000, kSize, " on 100000 node"},
      {kMemDevdax, "/none", -1, kSize, advice},
      {kMemDevdax, "/dev/zero", -1, kSize, reason + "/dev/zero" + other},
      {kMemDevdax, files.path(), -1, kSize, reason + files.path() + other},
      {kMemDevdax, file, -1, kSize,
       ". " + file +
           " holds 1 of 1048576 Byte. Check path or dax device, or set a smaller size with -m"},
      {kMemPmem, "/none", -1, kSize, ". Check file path or pmem."},
      {kMemPmem, dir.path(), -1, 1L << 62, ". There is not enough free memory"},
  };
  for (const auto& [kind, path, node, size, message] : cases) {
    TestBench bench(kind, path, node);
    const auto outcome = velmo_test::RunForked([&] { bench.AllocMem(size, -1, 0); });
    const std::string error = velmo_test::Error("Failed to allocate memory" + message);
    EXPECT_EQ(outcome, (velmo_test::Outcome{1, "", error}));
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(Bench, UsesWhatIsThereAndSaysWhatBoundsIt) {
  const velmo_test::TempDir dir;
  dir.Write("proc/self/mountinfo", "1 2 0:3 / /g rw - cgroup2 g rw\n");
  dir.Write("g/memory.current", "0\n");
  const std::string file = dir.Write("file", std::string(7 << 20, '\0'));
  const auto lowered = [](const char* mib, const char* reason) {
    return velmo_test::Warning("It is lowered from 3072 MiB to " + std::string(mib) +
                               " MiB: " + reason);
  };
  const char* group =
      "no more is used than 80 % of what the memory limit of the control group leaves";
  const std::tuple<int32_t, std::string, int, const char*, std::string> cases[] = {
      {kMemNuma, "", 100 << 20, "83886080", lowered("80", group)},
      {kMemPmem, dir.path(), 100 << 20, "83886080", lowered("80", group)},
      {kMemDevdax, file, 1, "6291456", lowered("6", "the device holds no more")},
      {kMemDevdax, dir.Write("small", "0"), 1, "1",
       velmo_test::Warning(
           "It is lowered from 3221225472 Byte to 1 Byte: the device holds no more")},
      {kMemDevdax, "/dev/null", 1, "2147483648",
       lowered("2048", "nobody tells how much of the memory is free")},
      {kMemNuma, "", 2 << 20, "",
       velmo_test::Error("Not enough free memory to measure: 1677721 Byte; " + std::string(group))},
      {kMemPmem, "/none", 1, "",
       velmo_test::Error("Failed to get free space on /none\n              Check the pmem path.")},
  };
  for (const auto& [kind, path, limit, usable, err] : cases) {
    dir.Write("g/memory.max", std::to_string(limit));
    const auto outcome = velmo_test::RunForked([&, &kind = kind, &path = path] {
      TestBench bench(kind, path);
      bench.config_.mem_size = 1;
      bench.groups_root_ = dir.path();
      bench.UpdateFreeMem();
      std::cout << bench.free_mem_;
      bench.WarnIfLowered("It", int64_t{3} << 30, bench.free_mem_);
      bench.CheckHoldsStride(64, 64);
    });
    EXPECT_EQ(outcome.out + outcome.err, usable + err);
  }
  EXPECT_EQ(velmo_test::RunForked([] { TestBench::CheckHoldsStride(63, 64); }).err,
            velmo_test::Error("Memory size is smaller than one stride of 64 Byte: 63 Byte. "
                              "Increase it with -m"));
}

TEST(CpuNode, IsTheOneThatMeasuresLeast) {
  const std::pair<std::vector<double>, int> cases[] = {
      {{90, 80, 85}, 1}, {{80, 80}, 0}, {{90, 89.9}, 1}, {{1e6, 1e5, 99'999}, 2}, {{1e6, 1e6}, 0}};
  for (const auto& [latencies, nearest] : cases) {
    std::vector<ProbingCpu> from;
    for (size_t n = 0; n < latencies.size(); ++n) from.push_back({static_cast<int>(n), 0});
    EXPECT_EQ(NearestOf(from, [&](const ProbingCpu& cpu) { return latencies[cpu.node]; }), nearest);
  }
}

TEST(CpuNode, IsSearchedOnceWhereUnknownAndAvoidsCpu0) {
  const int here = sched_getcpu();
  const std::string found = std::string("\n") + kInfoPrefix +
                            "===== Find Local CPU node =====\n\n" + kInfoPrefix +
                            "===========   End   ===========\n\n" + std::to_string(here) + " of 1";
  using Cpus = std::vector<std::pair<int, int>>;  // of node 1: number and core
  const std::tuple<int, Cpus, std::string> cases[] = {
      {1, {{0, -1}, {4, -1}}, "4 of 1"}, {1, {{0, 0}, {8, 0}, {3, 1}, {4, 2}}, "3 of 1"},
      {1, {{0, 7}, {1, 7}}, "0 of 1"},   {1, {{2, 1}, {0, 0}, {1, 0}}, "2 of 1"},
      {-1, {{here, 0}}, found},          {2, {{here, 0}}, found},
  };
  for (const auto& [node, cpus, out] : cases) {
    TestBench bench(kMemNuma);
    bench.config_.cpunode_list = {node};
    bench.config_.node_cpus.resize(3);
    for (const auto& [id, core] : cpus) bench.config_.node_cpus[1].push_back({1, id, core, 1});
    bench.config_.mem_size = 3;  // a search has a buffer of its own
    bench.free_mem_ = 2 << 20;
    testing::internal::CaptureStdout();
    bench.GetCPUNode();
    std::cout << bench.GetCPUNode().cpu_id << " of " << bench.config_.cpunode_list[0];
    EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
  }
}

}  // namespace
}  // namespace velmo
