#include "platform/watch.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "support/subprocess.h"

namespace velmo {
namespace {

double now = 0;

// A machine of four CPUs: a thread measures on CPU 1, another loads on CPU 2, CPU 3 helps,
// CPU 0 is kept awake. Writes
// what its kernel counts at the beginning of a stretch, or at its end.
void Write(const velmo_test::TempDir& dir, bool end) {
  const auto pick = [end](const char* before, const char* after) { return end ? after : before; };
  const auto task = [&dir](const std::string& tid, const std::string& stat,
                           const std::string& schedstat, const std::string& sched) {
    const std::string folder = "proc/self/task/" + tid + "/";
    dir.Write(folder + "stat", stat);
    dir.Write(folder + "schedstat", schedstat);
    dir.Write(folder + "sched", sched);
  };
  task("10", pick("10 (a) b) R 1 2 3 4 5 6 100 7 1 8", "10 (a) b) R 1 2 3 4 5 6 103 9 2 9"),
       pick("9 1000000000 9", "9 1020000000 9"),
       pick("se.nr_migrations : 1\nnr_voluntary_switches : 2\nnr_involuntary_switches : 3\n",
            "se.nr_migrations : 1\nnr_voluntary_switches : 3\nnr_involuntary_switches : 9\n"));
  task("11", pick("11 (a) R 1 2 3 4 5 6 50 7 0 8", "11 (a) R 1 2 3 4 5 6 50 7 0 8"), "9 5 9",
       pick("se.nr_migrations : 1\nnr_voluntary_switches : 2\n",
            "se.nr_migrations : 2\nnr_voluntary_switches : 2\n"));
  dir.Write("proc/self/task/11/status",
            pick("nonvoluntary_ctxt_switches:\t3\n", "nonvoluntary_ctxt_switches:\t12\n"));
  dir.Write("proc/stat", pick("cpu  1 1\ncpu0 10 0 10 900 0 0 0 0 0 0\ncpu1 100 0 0 0 0 1 1 5 0 0\n"
                              "cpu2 100 0 0 0 0 0 0 0 0 0\ncpu3 0 0 0 0\ncpu4 5 0 0 5\nintr 5\n",
                              "cpu  1 1\ncpu0 13 2 15 990 9 0 0 0 0 0\ncpu1 199 0 0 0 0 2 3 5 0 0\n"
                              "cpu2 150 0 0 0 0 0 0 50 0 0\ncpu3 90 0 0 0\ncpu4 5 0 0 104 1 0\n"));
  dir.Write("msr1", std::string(0xE7, '\0') + std::string(2, end ? '\2' : '\0'));
  dir.Write("proc/pressure/cpu", pick("some avg10=0.00 total=100\nfull avg10=0.00 total=7\n",
                                      "some avg10=0.00 total=500100\nfull avg10=0.00 total=7\n"));
  dir.Write("proc/vmstat", pick("pswpin 1\npswpout 2\n", "pswpin 4\npswpout 2\n"));
  dir.Write("proc/self/mountinfo", "1 2 0:3 / /cpu rw - cgroup cgroup rw,cpu\n");
  dir.Write("proc/self/cgroup", "3:cpu:/a\n");
  dir.Write("cpu/cpu.stat", "nr_throttled 5\nthrottled_time 7000000000\n");
  dir.Write("cpu/a/cpu.stat", pick("nr_throttled 1\nthrottled_time 2000000000\n",
                                   "nr_throttled 4\nthrottled_time 2500000000\n"));
  dir.Write("sys/devices/system/node/node4/meminfo", pick("Node 4 MemFree: 8 kB\n", "damaged"));
  for (const std::string cpu : {"1", "2"}) {
    const std::string folder = "sys/devices/system/cpu/cpu" + cpu + "/";
    dir.Write(folder + "cpufreq/scaling_cur_freq", cpu + pick("000000\n", "200000\n"));
    dir.Write(folder + "thermal_throttle/core_throttle_count", pick("2\n", "3\n"));
    dir.Write(folder + "thermal_throttle/package_throttle_count", "9\n");
  }
}

TEST(Watch, RecordsWhatRoseMeanwhile) {
  const velmo_test::TempDir dir;
  WatchSources from;
  from.root = dir.path();
  from.msr = dir.path() + "/msr%d";
  from.clocks = [](int tid, double& wall, double& cpu) {
    wall = now;
    cpu = (tid == 10 ? 0.97 : tid == 12 ? 0.03 : 0.5) * now;
    return true;
  };
  now = 10;
  Write(dir, false);
  Watch watch(from);
  watch.Start({{{10, 1}, {11, 2}}, {3}, {4}, {{12, 0}}});
  now = 11;
  Write(dir, true);
  const WatchRecord record = watch.Stop();

  const std::pair<const char*, std::pair<Reading, double>> rows[] = {
      {"cpu", {record.cpu_seconds, 0.5}},
      {"waited", {record.waited_seconds, 0.02}},
      {"paused", {record.paused_seconds, 0}},
      {"involuntary", {record.involuntary_switches, 9}},
      {"voluntary", {record.voluntary_switches, 1}},
      {"migrations", {record.migrations, 1}},
      {"minor", {record.minor_faults, 3}},
      {"major", {record.major_faults, 1}},
      {"stolen", {record.stolen_seconds, 0.5}},
      {"interrupts", {record.interrupt_seconds, 0.03}},
      {"other work", {record.other_work_seconds, 0.04}},
      {"throttle", {record.throttle_count, 2}},
      {"clock", {record.clock, 1.6e9}},
      {"others", {record.other_cpus_busy_seconds, 0.07}},
      {"busiest", {record.busiest_cpu_seconds, 0.07}},
      {"cpu pressure", {record.cpu_pressure_seconds, 0.5}},
      {"periods", {record.throttled_periods, 3}},
      {"throttled", {record.throttled_seconds, 0.5}},
      {"swapped in", {record.swapped_in_pages, 3}},
      {"swapped out", {record.swapped_out_pages, 0}},
      {"free", {record.nodes.at(0).free_bytes_before, 8192}},
  };
  for (const auto& [name, row] : rows) {
    EXPECT_EQ(row.first.reason, "") << name;
    EXPECT_NEAR(row.first.value, row.second, 1e-9) << name;
  }
  EXPECT_NEAR(record.seconds, 1, 1e-9);
  EXPECT_EQ(record.other_cpus, 2);
  EXPECT_EQ(record.busiest_cpu, 0);
  EXPECT_EQ(record.clock_unit, "Hz");
  EXPECT_EQ(record.memory_pressure_seconds.reason,
            dir.path() + "/proc/pressure/memory: No such file or directory");
  EXPECT_EQ(record.migrated_pages.reason, dir.path() + "/proc/vmstat has no pgmigrate_success");
  EXPECT_FALSE(record.nodes.at(0).free_bytes_after.known());
}

// On the machine that it runs on: a thread that sleeps, stopped in effect, and faults once a page.
TEST(Watch, SeesTheThreadThatCallsIt) {
  constexpr size_t kPages = 100;
  Watch watch;
  watch.Start({{{gettid(), 0}}, {}, {}});
  void* const pages =
      mmap(nullptr, kPages << 12, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_EQ(madvise(pages, kPages << 12, MADV_NOHUGEPAGE), 0);
  std::memset(pages, 1, kPages << 12);
  usleep(1000);
  const WatchRecord record = watch.Stop();
  munmap(pages, kPages << 12);
  EXPECT_GE(record.minor_faults.value, kPages);
  EXPECT_GE(record.voluntary_switches.value, 1);
  EXPECT_LE(record.cpu_seconds.value, record.seconds - 0.001);
}

}  // namespace
}  // namespace velmo
