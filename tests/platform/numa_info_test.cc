#include "platform/numa_info.h"

#include <gtest/gtest.h>

#include <map>

#include "app/text.h"
#include "support/fake_machine.h"

namespace velmo_test {

TEST(NumaInfo, ReadsTheMachine) {
  const struct {
    std::map<std::string, std::string> files;  // what differs from the fake machine
    // "[CPUs]local node" of each node, "off" for one that is not online; then the node of each CPU.
    std::string out;
    int (*distance)(int, int) = nullptr;
  } rows[] = {
      {{}, "[0-1]0 [2-3]1 1 off +0+0+1+1"},
      // Nodes 1 and 3 are equally near to 2; 0 and 1 are so to 3, and 2 is nearer.
      {{{"node/online", "0-3"}, {"node/node3/cpulist", ""}}, "[0-1]0 [2-3]1 -1 2 +0+0+1+1"},
      // The last node of a list with a gap is not visited, or its nearest would be node 1.
      {{{"node/online", "1-2"}}, "off [2-3]1 -1 off +0+0+1+1"},
      {{{"node/online", "0"}}, "[0-1]0 off off off +0+0+0+0"},
      {{{"cpu/cpu1/topology/core_id", ""}, {"cpu/cpu1/online", ""}, {"cpu/cpu2/online", "x"}},
       "[0-1]0 [2-3]1 1 off +0+0+1+1"},
      {{{"cpu/cpu2/online", "0"}}, "[0-1]0 [3]1 1 off +0+0-0+1"},
      {{{"cpu/cpu2/online", "0"}, {"cpu/cpu3/online", "0"}}, "[0-1]0 0 1 off +0+0-0-0"},
      {{{"node/node1/cpulist", "3-9,100000"}}, "[0-1]0 [3]1 1 off +0+0+0+1"},
      // Node 1 is not there, which libnuma calls a distance of 0.
      {{{"node/online", "0,2-3"}, {"node/node3/cpulist", "3"}},
       "[0-1]0 off 0 [3]3 +0+0+0+3",
       [](int, int to) { return to == 1 ? 0 : 20; }},
      {{{"node/online", "0-1,3"}},
       velmo::kWarningPrefix + std::string("Can't read node3 cpulist information.\n") +
           "[0-1]0 [2-3]1 off -1 +0+0+1+1"},
  };
  for (const auto& row : rows) {
    const FakeMachine machine;
    for (const auto& [name, text] : row.files) machine.files.Write(name, text);
    const Outcome outcome = RunForked([&] {
      velmo::Configurator config;
      machine.Install(config);
      if (row.distance != nullptr) config.numa_info.distance = row.distance;
      config.numa_info.Parse();
      for (const auto& node : config.numa_info.numa_list) {
        if (node.has_cpu) std::cout << '[' << velmo::vector_to_str_range(node.cpu_list, 0) << ']';
        std::cout << (node.is_online ? std::to_string(node.local_id) : "off") << ' ';
      }
      for (const auto& cpu : config.numa_info.cpu_list) {
        std::cout << (cpu.is_online != 0 ? '+' : '-') << cpu.numa_id;
      }
    });
    EXPECT_EQ(outcome, (Outcome{0, row.out, ""})) << "row " << &row - rows;
  }
}

}  // namespace velmo_test
