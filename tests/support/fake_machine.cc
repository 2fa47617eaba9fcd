#include "support/fake_machine.h"

namespace velmo_test {

FakeMachine::FakeMachine() {
  files.Write("node/online", "0-2\n");
  files.Write("node/node0/cpulist", "0-1\n");
  files.Write("node/node1/cpulist", "2-3\n");
  files.Write("node/node2/cpulist", "\n");
  for (int cpu = 0; cpu < 4; ++cpu) {
    const std::string folder = "cpu/cpu" + std::to_string(cpu);
    files.Write(folder + "/topology/core_id", std::to_string(cpu) + "\n");
    if (cpu > 0) files.Write(folder + "/online", "1\n");
  }
}

void FakeMachine::Install(velmo::NumaInfo& info) const {
  info.node_online_path = files.path() + "/node/online";
  info.cpulist_fmt = files.path() + "/node/node%d/cpulist";
  info.cpu_online_fmt = files.path() + "/cpu/cpu%d/online";
  info.core_id_fmt = files.path() + "/cpu/cpu%d/topology/core_id";
  info.configured_cpus = [] { return 4L; };
  info.max_node = [] { return 2; };
  info.distance = [](int from, int to) {
    static constexpr int kDistance[3][3] = {{10, 21, 40}, {21, 10, 30}, {40, 30, 10}};
    return kDistance[from][to];
  };
}

}  // namespace velmo_test
