#include "survey/survey_command.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>

#include "compare/sample.h"
#include "support/subprocess.h"
#include "survey/record_json.h"
#include "survey/survey_report.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace)

Estimate Near(double median) { return {median, median * 0.99, median * 1.01, 7, "95 %"}; }

TEST(SurveyReport, HasEveryTable) {
  Survey survey = SurveyOf({});
  survey.velmo_version = "3";
  survey.machine = Json::parse(R"({"processor": {"name": "P"}, "threads": 4, "nodes": [null,
      {"node": 0, "type": "DRAM", "size_bytes": 8589934592}, {"node": 1, "type": "far"}],
      "caches": [{"level": 1, "type": "Data", "size_bytes": 32768}, {"type": "Instruction"}]})");
  const auto add = [&](const char* kind, int from, int to, const Json& parameters, double value) {
    Cell& cell = survey.cells.emplace_back(MakeCell(kind, to));
    cell.from.cpu_node = from;
    cell.parameters.update(parameters);
    cell.summary[cell.kind == kBandwidth ? kBytesPerSecond : kAverageNs] = Near(value);
    return &cell;
  };
  for (const auto& [from, to] : {std::pair{0, 0}, {0, 1}, {1, 0}, {1, 1}}) {
    const double far = from == to ? 1 : 1.5;
    add(kIdleLatency, from, to, {{"pages", "4k"}}, 100 * far)->summary[kP99Ns] = Near(321);
    add(kBandwidth, from, to, {{"mix", "1:0"}}, 30e9 / far);
  }
  survey.cells[2].marks = {"placement"};
  survey.cells[4].state = kDisturbed;
  survey.cells[4].repeats = {MakeRepeat(1, {}, true)};
  survey.cells[4].repeats[0].watch["cpus"]["clock"] = {{"value", nullptr}, {"reason", "/x: none"}};
  add(kIdleLatency, 0, 0, {{"scope", "large_pages"}}, 90);
  add(kBandwidth, 0, 0, {{"mix", "1:1n"}}, 20e9)->summary[kBytesPerSecond].repeats = 1;
  add(kBandwidth, 0, 0, {{"mix", "1:0"}, {"scope", "one_thread"}}, 9e9);
  Cell* const loaded = add(kLoadedLatency, 0, 0, {{"mix", "1:0"}}, 0);
  for (const auto& [bandwidth, ns] : {std::pair{19e9, 500}, {20e9, 300}, {10e9, 120}, {1e9, 100}}) {
    loaded->points.push_back({0, {}, {{kBytesPerSecond, Near(bandwidth)}, {kAverageNs, Near(ns)}}});
  }
  for (const int size : {32768, 40960, 65536}) {
    add(kLatencyBySize, 0, 0, {{"buffer_bytes", size}}, size / 16384.0);
  }
  survey.cells.back().state = kFailed;
  survey.cells.back().message = "Killed";
  std::ostringstream text;
  write_survey(text, survey, "a.json");
  EXPECT_EQ(text.str(), R"(host, 2026-11-21T20:33:58Z, velmo 3
P, threads 4

Idle latency, ns  Type     Size     Average  2 MiB pages  99th  99.9th
node 0            DRAM  8.0 GiB  100.0 ±1.0    90.0 ±0.9   321       -
node 1             far        -  100.0 ±1.0            -   321       -

Bandwidth, GB/s             1:0   1:1n
node 0              30.00 ±0.30  20.00
node 1              30.00 ±0.30      -
one thread, node 0   9.00 ±0.09      -

Idle latency, ns              node 0              node 1
from node 0               100.0 ±1.0  150.0 ±1.5 (x1.50)
from node 1       150.0 ±1.5 (x1.50)          100.0 ±1.0

Reads, GB/s               node 0               node 1
from node 0          30.00 ±0.30  20.00 ±0.20 (x0.67)
from node 1  20.00 ±0.20 (x0.67)          30.00 ±0.30

Under load, ns   Peak, GB/s  at 10 %  at 50 %  at 90 %  at full  its 99.9th
node 0, 1:0     20.00 ±0.20      102      120      264      300           -

Latency by size        ns
32 KiB           2.0 ±0.0
64 KiB           4.0 ±0.0
Caches: L1 32 KiB

Written: a.json
Mind: Idle latency, node 0 to node 1: less than 99 % of the pages on their node
Failed: Latency by size, node 0 to node 0, 64 KiB: Killed
Not seen: clock (none)
Disturbed: 1 of 14 cells, by stolen_time (1 time)
  Idle latency, node 1 to node 0
  stolen_time: the host took time from the CPU: measure on a quieter host
)");
}

TEST(SurveyCommand, EndsWithTheStatusOfWhatHappened) {
  const TempDir dir;
  const std::string file = dir.path() + "/a.json";
  const struct {
    std::string script;  // $0 is velmo
    int status;
    const char* state;
  } cases[] = {
      {"$0 $survey 1 --quiet --directory none -o a.json", 0, kComplete},
      {"$0 $survey 1 --quiet --directory none -o a.json --strict", 3, kComplete},
      {"$0 $survey 1 --memory-nodes 0 --directory . -o none/a.json", 1, ""},
      {"mkfifo pipe; (read -r; kill -INT $$; cat) <pipe & "
       "exec $0 $survey 99 -o a.json 2>pipe",
       130, kInterrupted},
  };
  for (const auto& [script, status, state] : cases) {
    std::filesystem::remove(file);
    const Outcome outcome = RunScript(
        "cd " + dir.path() + "; survey='survey --only idle --size 8m --repeats'; " + script);
    EXPECT_EQ(outcome.status, status) << outcome;
    const std::string survey = ReadAll(file);
    EXPECT_EQ(survey.empty() ? "" : Json::parse(survey)["run"]["state"], state) << outcome;
  }
}

}  // namespace velmo_test
