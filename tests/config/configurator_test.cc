#include "config/configurator.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <sstream>

#include "app/signal_handler.h"
#include "app/text.h"
#include "app/version.h"
#include "support/fake_machine.h"

namespace velmo_test {
namespace {

using velmo::Configurator;
using Prepare = void (*)(Configurator&, const TempDir& machine);

void PrintRecord(const Configurator& c) {
  std::cout << "iter " << c.iter << " size " << c.mem_size << " targets " << c.num_targets
            << " mem " << velmo::vector_to_str_range(c.memnode_list, 0) << " cpu "
            << velmo::vector_to_str_range(c.cpunode_list, 0) << " base";
  for (const int64_t address : c.base_addr) std::cout << ' ' << address;
  std::cout << " local " << c.bandwidth_local << " mix " << c.read << ':' << c.write << " run "
            << c.run_bandwidth << c.run_latency << c.run_loaded_latency << " latency "
            << c.delayed_latency << c.burst_latency << " memory " << c.mem_mode << c.devdax
            << c.pmem << c.no_memnode << " path " << c.path << " stride " << c.stride << " chunk "
            << c.chunk << " verbose " << c.verbose << " output " << c.output << " delay " << c.delay
            << " bw_delay " << c.bw_delay << " pa " << c.use_pa_set << c.use_pa << " flags "
            << c.basic_workload << c.full << c.stream << " lat " << c.latency_cpu.cpu_id << " load";
  for (const auto& cpu : c.load_cpu) std::cout << ' ' << cpu.cpu_id << '@' << cpu.numa_id;
  std::cout << " nodes";
  for (const auto& cpus : c.node_cpus) std::cout << ' ' << cpus.size();
  std::cout << " clock " << (c.clock_overhead > 0) << (c.tsc_freq > 1e8 && c.tsc_freq < 1e11)
            << " on cpu " << sched_getcpu() << ' ' << 2.0 / 3;
}

// "velmo" with the blank-separated `args` on FakeMachine. `prepare` may change record and
// machine before. What is accepted is printed.
Outcome Parse(const std::string& args, Prepare prepare = nullptr) {
  const FakeMachine machine;
  return RunForked([&] {
    velmo::install_exit_guards();
    Configurator config;
    machine.Install(config);
    config.clock_test_count = 1000;
    EXPECT_EQ(config.clock_overhead_limit, 1000);
    config.clock_overhead_limit = 1e9;  // whatever else the machine does meanwhile
    if (prepare != nullptr) prepare(config, machine.files);
    std::string line = "velmo " + args;
    std::vector<char*> argv;
    for (char* word = std::strtok(line.data(), " "); word; word = std::strtok(nullptr, " ")) {
      argv.push_back(word);
    }
    argv.push_back(nullptr);
    config.InputArguments(static_cast<int>(argv.size()) - 1, argv.data());
    PrintRecord(config);
  });
}

std::string Page(void (Configurator::*page)() const) {
  return RunForked([page] { (Configurator().*page)(); }).out;
}

// CPUs 0 and 1 are hyper-threads of one core; CPU 2 is of another node.
void OneCore(Configurator& /*config*/, const TempDir& machine) {
  machine.Write("cpu/cpu1/topology/core_id", "0");
  machine.Write("cpu/cpu2/topology/core_id", "0");
}

// The process may use CPUs 0 and 2, and all memory, of which node 1 has none, but that of node 2.
void Cpuset(Configurator& config, const TempDir& /*machine*/) {
  config.numa_info.cpus_of_process = [] { return std::vector{0, 2}; };
  config.numa_info.nodes_of_process = [] { return velmo::MemoryNodes{{0}, {2}}; };
}

// The physical mode, which no option selects, with two threads whatever the host has.
void Physical(Configurator& config, const TempDir& /*machine*/) {
  config.mem_mode = velmo::kMemPhysical;
  config.thread = 2;
}

TEST(Options, RefusesValues) {
  const struct {
    const char* option;
    const char* values;
    std::string message;  // the value follows
  } rows[] = {
      {"-C ", "-1 2 3 4", "Invalid cpunode: "},  // 2 has no CPUs, 3 is offline
      {"-V ", "2 -1", "Invalid verbose (0 <= verbose <= 2): "},
      {"-c ", "3 01", "Invalid chunk-size: "},
      {"-i ", "0 -3", "Invalid iter. (iter > 0): "},
      {"-i ", "2147483644", "Invalid iter. Too many iterations: "},
      {"-j ", "1 999999", "Invalid thread. (2 <= thread <= 4): "},
      {"-k ", "4 -1", "Invalid latency_cpu (0 <= latency_cpu < 4): "},
      {"-l 3-", "4", "Invalid load_cpu (0 <= load_cpu < 4): "},
      {"-m ", "10T", "Invalid memory size: "},
      {"-m ", "0 -5", "Invalid memory-size. (mem_size > 0): "},
      {"-s ", "96 0 -64 8256",
       "Invalid stride. Should be aligned to 64 byte. (64 <= stride <= 8192): "},
      {"-r ", "-1", "Invalid read. (read >= 0): "},
      {"-w ", "-1", "Invalid write. (write >= 0): "},
      {"-D ", "-5", "Invalid bw_delay. (bw_delay >= 0): "},
      {"--use_pa=", "0", "Invalid use_pa (use_pa > 0): "},
      {"-", "p", "Unsupported argument: "},
  };
  for (const auto& row : rows) {
    std::istringstream values(row.values);
    for (std::string value; values >> value;) {
      EXPECT_EQ(Parse(row.option + value), (Outcome{1, "", Error(row.message + value)}));
    }
  }
  for (const std::string name : {"cpunode", "memnode", "verbose", "iter", "thread", "latency_cpu",
                                 "read", "write", "use_pa"}) {
    EXPECT_EQ(Parse("--" + name + "=#"), (Outcome{1, "", Error("Invalid " + name + ": #")}));
  }
  EXPECT_EQ(Parse("-d 1e3").err,
            Warning("-d 1e3 is read as 1") + Error("Invalid delay. (100 <= delay <= 10000)"));
  EXPECT_EQ(Parse("--no").err,
            "velmo: unrecognized option '--no'\n" + Error("Unsupported argument: ?"));
}

TEST(Options, RefusesCommandLines) {
  const Prepare no_clock = [](Configurator& c, const TempDir&) { c.clock_overhead_limit = 0; };
  const Prepare address = [](Configurator& c, const TempDir&) { c.base_addr = {1 << 30}; };
  const Prepare no_cpu3_nor_node2 = [](Configurator&, const TempDir& machine) {
    machine.Write("cpu/cpu3/online", "0");
    machine.Write("node/online", "0-1");
  };
  const std::string outside = " is offline or outside the cpuset of this process. Usable CPUs: 0,2";
  const std::string end = "Invalid base-address. Change base address or memory size";
  const std::string next = '\n' + Error("").substr(0, Error("").size() - 1);
  constexpr int kAbort = 128 + SIGABRT;  // text that passes for a number and is none
  enum { kPlain, kUsage };
  const struct {
    std::string args;
    std::string message;
    bool usage = false;
    Prepare prepare = nullptr;
    int status = 1;
  } rows[] = {
      {"-d 99", "Invalid delay. (100 <= delay <= 10000)"},
      {"-d 10001", "Invalid delay. (100 <= delay <= 10000)"},
      {"-l 3", "Invalid load_cpu. load_cpu option needs more than 2 cores."},
      {"-l 2-3", "Invalid load_cpu. cpu3 is offline.", kPlain, no_cpu3_nor_node2},
      {"--output=", "Invalid output"},
      {"-f /nonexistent", "Invalid devdax path. Check the path."},
      {"-g /nonexistent", "Invalid pmem path. Check the path."},
      {"-f / -g /", "-p, -f and -g can't use together."},
      {"-b 0", "Unsupported argument: b"},
      {"-Z -k 1", "--loaded_latency need both lat_cpu and load_cpu."},
      {"-Z -k 1 -l 0-2", "lat_cpu and load_cpu can't use same cpu_id. lat_cpu: 1, load_cpu: 1"},
      {"-L -A", "Failed to find heterogenous memory devices", kPlain, no_cpu3_nor_node2},
      {"-Z -f /", "devdax mode can't measure bandwidth."},
      {"-L", "clock is not work", kPlain, no_clock},
      {"-Z -k 1 -l 0-1", "lat_cpu and load_cpu can't use same cpu_id. lat_cpu: 1, load_cpu: 1",
       kPlain, OneCore},
      {"-B -j 3", "Invalid thread. (2 <= thread <= 2): 3", kPlain, Cpuset},
      {"-L -k 1", "Invalid latency_cpu. cpu1" + outside, kPlain, Cpuset},
      {"-B -l 2-3", "Invalid load_cpu. cpu3" + outside, kPlain, Cpuset},
      {"-L -C 1",
       "Invalid cpunode: 1. Its CPUs 2-3 are offline or outside the cpuset of this process. "
       "Usable CPUs: 0-1",
       kPlain,
       [](Configurator& c, const TempDir&) {
         c.numa_info.cpus_of_process = [] { return std::vector{0, 1}; };
       }},
      {"-L -M 2", "Memory node 2 is outside the cpuset of this process. Allowed nodes: 0", kPlain,
       Cpuset},
      {"-m 1g", "Invalid options. (No command)", kUsage},
      {"-L -M 0", "Invalid options. -b and -M can't be used together.", kUsage, address},
      {"-T -M 0 -k 1 -l 0,2", "Invalid option. -C/-T/-j and -k can't be used together.", kUsage},
      {"-B -C 0 -l 1-2", "Invalid option. -C/-T/-j and -l can't be used together.", kUsage},
      {"-L -M -1", "Invalid memnode.", kUsage},  // the marker "not given", given
      {"-L -M 3", "Invalid memnode. Check if memory node is online.", kUsage},
      {"-L -M 0 -f /", "-M option can't be used together with -f or -g option.", kUsage},
      {"-B -r 1 -w 2",
       "Invalid r/w ratio. If not use non-temporal-write, read ratio must be larger than write "
       "ratio",
       kUsage},
      {"-T", "Invalid options. -T need memory bind (-M)", kUsage},
      {"-L -M 0",
       "Invalid memnode. Check memnode value.\n"
       "              physical mode can only use heterogenous memory.",
       kUsage, Physical},
      {"-L -M 2 -m 15g", end, kUsage, Physical},
      {"-Z -M 2 -m 3328m", end, kUsage, Physical},
      {"-C x1", "Not a number: x1", kPlain, nullptr, kAbort},
      {"-i 99999999999", "Number out of range: 99999999999", kPlain, nullptr, kAbort},
      {"-d #3", "Invalid delay: #3" + next + "Not a number: #3", kPlain, nullptr, kAbort},
      {"-D 7 -D #", "Invalid bw_delay: 7" + next + "Not a number: #", kPlain, nullptr, kAbort},
  };
  const std::string usage = Page(&Configurator::Usage);
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(row.args, row.prepare),
              (Outcome{row.status, row.usage ? usage : "", Error(row.message)}))
        << row.args;
  }
  const Prepare no_nodes = [](Configurator& c, const TempDir&) {
    c.numa_info.node_online_path = "/none";
  };
  EXPECT_EQ(Parse("-L", no_nodes),
            (Outcome{1, "",
                     Warning("Failed to get node information") +
                         Error("No CPU is known: failed to read /none. Check that sysfs is mounted "
                               "and the kernel has NUMA support (CONFIG_NUMA=y)")}));
}

TEST(Checks, CompleteTheRecord) {
  const std::string few = "Memory size is not enough to measure ";
  const std::string more = "\n                It is recommended to set memory size to ";
  const struct {
    std::string args;
    const char* record;  // a part of what PrintRecord says
    std::string err = {};
    Prepare prepare = nullptr;
  } rows[] = {
      {"-L",
       "iter 2 size 2147483648 targets 1 mem 0 cpu -1 base local 0 mix 0:0 run 010 latency 11"},
      {"-B -L", "iter 14 size -1 targets 1 mem 0 cpu -1 base local 0 mix 1:0 run 110"},
      {"-X -i 10 -m 2g", "iter 11 size 2147483648 "},
      {"-Z -i 3 -m 100m", "iter 7 size 104857600 "},
      {"-B -r 1 -w 2 -n", "mix 1:2"},
      {"-L -C 0 -M 2", "targets 1 mem 2 cpu 0 base local 1"},
      {"-L -A", "targets 1 mem 2 cpu 1"},
      {"-L -A", "targets 1 mem 1 ",
       Warning("Memory node 2 is outside the cpuset of this process and is left out"),
       [](Configurator& c, const TempDir& machine) {
         machine.Write("node/node1/cpulist", "");
         c.numa_info.nodes_of_process = [] { return velmo::MemoryNodes{{0, 1}, {2}}; };
       }},
      {"-B -T -M 0", "mem 0 cpu 0 base local 1"},
      {"-T -B -M 0", "mem 0 cpu 0 base local 0"},
      {"-Y -f /dev/null",
       "mem -1 cpu -1 base local 0 mix 0:0 run 010 latency 01 memory 2100 path /dev/null"},
      {"-B -g /tmp", "memory 3010 path /tmp"},
      {"-L -M 2 -m 16106127359", "mem 2 cpu 1 base 69793218560", "", Physical},
      {"-L -A", "targets 2 mem 2,-1 cpu 1,-1 base 69793218560 138512695296", "", Physical},
      {"-X -s 1k -c 2 -V 0 -o run -d 100 -D 0 -z7",
       "stride 1024 chunk 4 verbose 0 output run_ delay 100 bw_delay 0 pa 17 flags 000"},
      {"-Y -c 0 -z", "chunk 1 verbose 1 output  delay 2000 bw_delay -1 pa 1500 flags 000"},
      {"--bandwidth -aFn", "pa 0500 flags 111 lat -1 load nodes"},
      {"-Z -k 0 -l 3,2", "lat 0 load 2@1 3@1 nodes 2 2 0 0 clock 11 on cpu 0 0.67"},
      {"-Z -k 0 -l 1-3", "load 1@0 2@1 3@1 nodes",
       Warning("lat_cpu and load_cpu use same physical core. It is recommended that use another "
               "physical core.\n                lat_cpu : 0, core_id: 0\n"
               "                load_cpu: 1, core_id: 0"),
       OneCore},
      {"-Z -k 0 -l 1-2", "load 1@0 2@1 nodes 2 2", "",
       [](Configurator&, const TempDir& machine) {
         for (const char* cpu : {"0", "1"})
           machine.Write("cpu/cpu" + std::string(cpu) + "/topology/core_id", "");
       }},
      {"-B -k 2", "lat 2 load nodes 1 1 0 0", "", Cpuset},
      {"-B -m 1.5m1G -i 1e3 -r 2 -w 1,0",
       "iter 5 size 1073741824 targets 1 mem 0 cpu -1 base local 0 mix 2:1",
       Warning("-m 1.5m1G is read as 1G") + Warning("-i 1e3 is read as 1") +
           Warning("-w 1,0 is read as 1")},
      {"-B -m 102399k", "iter 14 ", Warning(few + "bandwidth" + more + "100MiB")},
      {"-L -m 2097151k", "iter 2 ", Warning(few + "latency" + more + "2GiB")},
  };
  for (const auto& row : rows) {
    const Outcome outcome = Parse(row.args, row.prepare);
    EXPECT_TRUE(outcome.status == 0 && outcome.err == row.err &&
                outcome.out.find(row.record) != std::string::npos)
        << row.args << ": " << outcome;
  }
}

TEST(Configurator, ShowsThePageOfTheFirstCommandAndTheVersion) {
  const std::pair<const char*, void (Configurator::*)() const> rows[] = {
      {"", &Configurator::Usage},
      {"--mem_size=1g -L --help", &Configurator::Usage},
      {"-h -B -L", &Configurator::UsageBW},
      {"--burst_latency --help", &Configurator::UsageLat},
      {"-T -h", &Configurator::UsageBWLocal},
      {"-Z --help", &Configurator::UsageLoadedLat},
  };
  for (const auto& [args, page] : rows)
    EXPECT_EQ(Parse(args), (Outcome{0, Page(page), ""})) << args;
  const auto version = [] { execl(VelmoPath().c_str(), "velmo", "-v", "-V2", nullptr); };
  EXPECT_EQ(RunForked(version).out, std::string("\nVELMO ver.") + velmo::kVersion + "\n");
}

}  // namespace
}  // namespace velmo_test
