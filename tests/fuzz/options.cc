// Command lines, an argument a line that is not empty, on the unit tests' machine. The program name
// "physical" starts in the physical mode, which no option selects.

#include "config/configurator.h"
#include "fuzz/harness.h"
#include "support/fake_machine.h"

using velmo::Configurator;
using velmo_fuzz::Require;

static void CheckValues(const Configurator& c) {
  Require(c.stride >= 64 && c.stride <= 8192 && c.stride % 64 == 0, "stride");
  Require(c.chunk == 1 || c.chunk == 2 || c.chunk == 4, "chunk");
  Require(c.delay >= 100 && c.delay <= 10000 && c.bw_delay >= -1, "delays");
  Require(c.iter > 0 && c.use_pa > 0 && (c.thread == -1 || c.thread >= 2), "counts");
  const bool loads = c.run_bandwidth || c.run_loaded_latency;
  Require(c.mem_size > 0 || (loads && c.mem_size == -1), "mem_size");
  Require(loads || c.run_latency, "a command");
  if (!loads) return;
  Require(c.mem_mode != velmo::kMemDevdax, "no bandwidth of a device");
  Require(c.read >= 0 && c.write >= 0 && (c.read > 0 || c.write > 0), "mix");
  Require(c.stream || c.read >= c.write, "a cached store reads");
}

static void CheckBinding(const Configurator& c) {
  for (size_t i = 0; i < c.load_cpu.size(); ++i) {
    const int cpu = c.load_cpu[i].cpu_id;
    Require(i == 0 || cpu > c.load_cpu[i - 1].cpu_id, "each load CPU once");
    Require(!c.run_loaded_latency || cpu != c.latency_cpu.cpu_id, "-l leaves -k alone");
  }
  const auto count = static_cast<size_t>(c.num_targets);
  Require(count > 0 && c.memnode_list.size() == count && c.cpunode_list.size() == count, "nodes");
  for (size_t i = 0; i < count; ++i) {
    const int from = c.cpunode_list[i];
    Require(from >= -1 && from <= 1 && c.memnode_list[i] >= -1 && c.memnode_list[i] <= 2, "online");
    Require(c.memnode == -1 || c.memnode_list[i] == c.memnode, "-M binds");
    Require(c.cpunode == -1 || from == c.cpunode, "-C binds");
    Require(c.latency_cpu.cpu_id == -1 || from == c.latency_cpu.numa_id, "-k binds");
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const velmo_test::FakeMachine machine;
  std::vector<std::string> arguments = velmo_fuzz::Lines({data, data + size});
  std::erase(arguments, "");
  if (arguments.empty()) arguments = {"velmo"};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  Configurator config;
  machine.Install(config);
  velmo_fuzz::Run([&] {
    if (arguments[0] == "physical") {
      config.mem_mode = velmo::kMemPhysical;
      config.thread = 2;
    }
    config.ParseOptions(static_cast<int>(arguments.size()), argv.data());
    config.CheckOptions();
    CheckValues(config);
    CheckBinding(config);
  });
  return 0;
}
