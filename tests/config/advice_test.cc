#include "config/advice.h"

#include <gtest/gtest.h>

#include "app/text.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

// Node 0 has CPUs 0, 1 (one core) and 2; node 1 has 4 and 5; node 2 has none.
TEST(Advice, KnowsWhatARunWillMeasure) {
  struct Row {
    const char* commands;
    int node;                      // CPU node of the one target
    void (*set)(Configurator& c);  // further options
    std::string expected;          // CPUs, whether they are known, latency, memory nodes
  };
  const auto none = [](Configurator& /*c*/) {};
  const Row rows[] = {
      {"L", -1, none, "0-2,4-5 01 "},
      {"L", 2, none, "0-2,4-5 01 "},
      {"L", 0, none, "2 11 "},
      {"L", 1, [](Configurator& c) { c.no_memnode = false; }, "4 11 7"},
      {"L", 0, [](Configurator& c) { c.latency_cpu.cpu_id = 5; }, "5 11 "},
      {"B", 0, none, "0-2,4-5 10 "},
      {"B", 0, [](Configurator& c) { c.bandwidth_local = 1; }, "0-2 10 "},
      {"B", -1, [](Configurator& c) { c.bandwidth_local = 1; }, "0-2,4-5 00 "},
      {"B", 1, [](Configurator& c) { c.thread = 2; }, "0-2,4-5 00 "},
      {"B", 1,
       [](Configurator& c) {
         c.load_cpu = {{1, 2, 0, 0}};
       },
       "2 10 "},
      {"Z", 1,
       [](Configurator& c) {
         c.load_cpu = {{1, 2, 0, 0}};
       },
       "2,4 11 "},
  };
  for (const Row& row : rows) {
    Configurator c;
    c.node_cpus = {{{1, 0, 0, 0}, {1, 1, 0, 0}, {1, 2, 1, 0}}, {{1, 4, 0, 1}, {1, 5, 1, 1}}, {}};
    c.memnode_list = {7};
    c.cpunode_list = {row.node};
    c.run_latency = row.commands[0] == 'L';
    c.run_bandwidth = row.commands[0] == 'B';
    c.run_loaded_latency = row.commands[0] == 'Z';
    row.set(c);
    const Subjects s = under_test(c);
    const std::string text = vector_to_str_range(s.cpus, 0) + ' ' + std::to_string(s.known) +
                             std::to_string(s.latency) + ' ' + vector_to_str_range(s.nodes, 0);
    EXPECT_EQ(text, row.expected) << "row " << &row - rows;
  }
}

// Of four rules that were broken, the one that was broken once is left out.
TEST(Advice, TellsATerminalWhatDisturbedMost) {
  WatchRecord record;
  record.seconds = 1;
  Disturbances disturbances;
  disturbances.Add(record);
  record.migrations = {1};
  disturbances.Add(record);
  record.migrations = {};
  record.paused_seconds = {0.1234};
  record.minor_faults = {9};
  record.other_work_seconds = {0.5};
  disturbances.Add(record);
  record.paused_seconds = {0.02};
  Disturbances run;
  run.Add(record);
  run.Add(disturbances);
  const auto tell = [&] { tell_disturbances(run); };
  std::string expected;
  for (const std::string begin :
       {"faults (2 of 4 measurements, up to 9): ", "paused (2 of 4 measurements, up to 12.3 %): ",
        "other_work (2 of 4 measurements, up to 50 %): "}) {
    const std::string rule = begin.substr(0, begin.find(' '));
    const std::string advice(rule_advice(rule));
    expected += kWarningPrefix + ("Disturbed by " + begin) + advice + "\r\n";
  }
  EXPECT_EQ(velmo_test::OnTerminal(80, tell), expected);
  EXPECT_EQ(velmo_test::RunForked(tell), (velmo_test::Outcome{0, "", ""}));
}

}  // namespace
}  // namespace velmo
