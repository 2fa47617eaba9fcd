#include "compare/comparison.h"

#include <gtest/gtest.h>

#include <sstream>

#include "compare/compare_report.h"
#include "compare/sample.h"
#include "survey/curve.h"
#include "survey/repeats.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace)

const std::vector<double> kLow = {100, 100.1, 100.2, 100.3, 100.4, 100.5, 100.6};
const std::vector<double> kHigh = {110, 110.1, 110.2, 110.3, 110.4, 110.5, 110.6};
const std::vector<double> kWide = {90, 94, 98, 102, 106, 110, 114};

// "worse +10 %", or the reason why there is no verdict.
std::string Told(const Finding& finding) {
  if (!finding.reason.empty()) return finding.reason;
  const int percent = static_cast<int>(std::lround(percent_of(finding.change.estimate)));
  return std::string(verdict_text(finding.verdict)) + ' ' + std::to_string(percent);
}

std::string Told(Cell old_cell, Cell new_cell) {
  const Side old_side{"old", {SurveyOf({std::move(old_cell)})}};
  const Side new_side{"new", {SurveyOf({std::move(new_cell)})}};
  const Comparison comparison = compare(old_side, new_side, kDefaultMargin);
  std::string text = Told(comparison.findings.front());
  for (const std::string& mark : comparison.findings.front().marks) text += ", " + mark;
  return text;
}

TEST(Repeats, CountCleanOnesUnlessTheyAreFew) {
  std::vector<Repeat> repeats = {MakeRepeat(1, {{kAverageNs, 1}}), MakeRepeat(2, {}),
                                 MakeRepeat(3, {{kAverageNs, 3}}, true),
                                 MakeRepeat(4, {{kMedianNs, 4}})};
  EXPECT_EQ(counted_values(repeats, kAverageNs), (std::vector<double>{1}));
  repeats.push_back(MakeRepeat(5, {{kAverageNs, 5}}, true));
  EXPECT_EQ(counted_values(repeats, kAverageNs), (std::vector<double>{1}));
  repeats.push_back(MakeRepeat(6, {{kAverageNs, 6}}, true));
  EXPECT_EQ(counted_values(repeats, kAverageNs), (std::vector<double>{1, 3, 5, 6}));
  EXPECT_TRUE(counted_values({MakeRepeat(1, {})}, kAverageNs).empty());
}

TEST(Comparison, GivesVerdictsMarksAndReasons) {
  const auto latency = [](const std::vector<double>& ns) { return CellOf(0, kAverageNs, ns); };
  const auto bandwidth = [](const std::vector<double>& v) { return CellOf(0, kBytesPerSecond, v); };
  EXPECT_EQ(Told(latency(kLow), latency(kHigh)), "worse 10");
  EXPECT_EQ(Told(latency(kHigh), latency(kLow)), "better -9");
  EXPECT_EQ(Told(bandwidth(kLow), bandwidth(kHigh)), "better 10");
  EXPECT_EQ(Told(bandwidth(kHigh), bandwidth(kLow)), "worse -9");
  EXPECT_EQ(Told(latency(kLow), latency(kLow)), "same 0");
  EXPECT_EQ(Told(latency(kWide), latency(kWide)), "unclear 0");
  EXPECT_EQ(Told(latency({1, 2, 3}), latency({4, 5, 6})), "too few repeats (3 and 3)");
  EXPECT_EQ(Told(latency(kLow), latency({})), "not measured in new");
  EXPECT_EQ(Told(latency(kLow), latency({0, 1, 1, 1, 1})), "a value that is not above 0");

  Cell spoiled = latency(kHigh);
  for (Repeat& repeat : spoiled.repeats) repeat.disturbed_by = {{"stolen_time", 2, 0.5, "%"}};
  EXPECT_EQ(Told(latency(kLow), spoiled), "worse 10, disturbed (new)");
  spoiled.repeats[0].disturbed_by.clear();
  spoiled.marks = {"placement"};
  EXPECT_EQ(Told(spoiled, latency(kLow)), "better -9, disturbed (old), placement (old)");
  spoiled.state = kFailed;
  spoiled.message = "out of memory";
  EXPECT_EQ(Told(latency(kLow), spoiled),
            "failed in new: out of memory, failed (new), placement (new)");
}

// A loaded cell with three points of bandwidth 10, 60 and 100, times `scale`, whose latency is 100
// and rises by `slope` ns with each of them.
Cell Curve(double scale, double slope, int passes) {
  Cell cell = MakeCell(kLoadedLatency, 1);
  for (const int delay : {0, 100, 1000}) {
    const double bandwidth = scale * (delay == 0 ? 100 : (delay == 100 ? 60 : 10));
    cell.points.push_back({delay, {}, {}});
    for (int round = 1; round <= passes; ++round) {
      const double off = 1 + 1e-4 * round;
      cell.points.back().repeats.push_back(MakeRepeat(
          round,
          {{kBytesPerSecond, off * bandwidth}, {kAverageNs, off * (100 + slope * bandwidth)}}));
    }
  }
  return cell;
}

TEST(Curve, IsReadAtBandwidthsPassByPass) {
  Cell cell = Curve(1, 1, 4);
  cell.points[0].repeats[2].figures.clear();                           // the third pass failed
  cell.points[1].repeats[1].disturbed_by = {{"migration", 1, 0, ""}};  // of the second pass
  const std::vector<Repeat> at_half = curve_latencies(cell, 50);
  ASSERT_EQ(at_half.size(), 3U);
  EXPECT_NEAR(at_half[0].figures.at(kAverageNs), 150.01, 1e-6);
  EXPECT_EQ(at_half[1].disturbed_by.size(), 1U);
  EXPECT_TRUE(at_half[2].disturbed_by.empty());
  EXPECT_TRUE(curve_latencies(cell, 5)[0].failed());
  EXPECT_TRUE(curve_latencies(cell, 101)[0].failed());
  EXPECT_EQ(curve_peaks(cell).size(), 3U);
  EXPECT_DOUBLE_EQ(curve_peaks(cell)[2].figures.at(kBytesPerSecond), 100.04);

  // A load that falls again beyond the peak: the first crossing counts.
  cell.points[0].repeats[0].figures = {{kBytesPerSecond, 40}, {kAverageNs, 900}};
  EXPECT_NEAR(curve_latencies(cell, 35)[0].figures.at(kAverageNs), 135.01, 0.01);
}

TEST(Curve, IsComparedAtTheSmallerPeak) {
  const Side old_side{"old", {SurveyOf({Curve(1.5, 1, 7)})}};
  const Side new_side{"new", {SurveyOf({Curve(1, 1.5, 7)})}};
  std::map<double, std::string> at;
  for (const Finding& finding : compare(old_side, new_side, 1).findings) {
    at[finding.load.value_or(1)] = Told(finding);
  }
  // 100 + 1.5 * 50 to 100 + 50, and 235 to 190. The old curve begins at 15.
  EXPECT_EQ(
      at,
      (std::map<double, std::string>{
          {0.1, "not measured in old"}, {0.5, "worse 17"}, {0.9, "worse 24"}, {1, "worse -33"}}));
}

TEST(Comparison, OfSetsTakesTheSurveyAsUnit) {
  Side old_side{"old", {}};
  Side new_side{"new", {}};
  for (int i = 0; i < 7; ++i) {
    const double run = 100 + 3 * i;
    old_side.surveys.push_back(SurveyOf({CellOf(0, kAverageNs, {run, run + 0.1, run + 90})}));
    new_side.surveys.push_back(SurveyOf({CellOf(0, kAverageNs, {run + 12, run + 12.2})}));
  }
  const Comparison sets = compare(old_side, new_side, kDefaultMargin);
  const Finding& finding = sets.findings.front();
  EXPECT_EQ(finding.old_values, (std::vector{100.1, 103.1, 106.1, 109.1, 112.1, 115.1, 118.1}));
  EXPECT_NEAR(percent_of(finding.margin), 5.08, 0.01);  // half lie 6 ns off their middle or more
  EXPECT_EQ(Told(finding), "unclear 11");
  new_side.surveys.resize(2);
  EXPECT_EQ(Told(compare(old_side, new_side, 1).findings.front()), "too few surveys (7 and 2)");
}

TEST(Comparison, TellsWhatIsUnlikeBeforeAnyNumber) {
  Survey a = SurveyOf({CellOf(0, kAverageNs, kLow), CellOf(1, kAverageNs, kWide),
                       CellOf(2, kAverageNs, {9, 9, 9}), CellOf(0, kBytesPerSecond, kHigh)});
  a.machine =
      Json::parse(R"({"kernel": {"release": "6.1.0-18"}, "nodes": [{"node": 0, "free_bytes": 5}],
      "processor": {"microcode": {"value": null, "reason": "not root"}},
      "memory_modules": [{"locator": "A1", "speed_mt_s": 4800}, {"locator": "B1", "speed_mt_s": 4800}]})");
  Survey b = a;
  b.cells.pop_back();
  b.cells[0] = CellOf(0, kAverageNs, kHigh);
  b.cells[0].parameters["pages"] = "thp";
  b.cells[0].marks = {"small_buffer"};
  b.state = kInterrupted;
  b.machine["kernel"]["release"] = "6.1.0-25 " + std::string(100, 'x');
  b.machine["nodes"][0]["free_bytes"] = 6;
  b.machine["processor"]["microcode"]["reason"] = "no such file";
  b.machine["memory_modules"].erase(0);
  const Side old_side{"a.json", {a}};
  const Side new_side{"b.json", {b}};
  const Comparison comparison = compare(old_side, new_side, kDefaultMargin);
  std::ostringstream text;
  write_comparison(text, comparison);
  EXPECT_EQ(text.str(), R"(Old: a.json: host, 2026-11-21T20:33:58Z, complete
New: b.json: host, 2026-11-21T20:33:58Z, interrupted, cells may be missing

Unlike in settings or machine:
  pages of idle_latency (1 cell): none -> thp
  kernel.release: 6.1.0-18 -> 6.1.0-25
    xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx
    xxxxxxxxxxxxxxxxxxxxxxxx
  memory_modules[A1].locator: A1 -> none
  memory_modules[A1].speed_mt_s: 4800 -> none

Only in old, not compared:
  bandwidth/node/0/node 0

Latencies in ns, bandwidths in GB/s, changes in percent; CPU node > memory node.
Seen: the smallest change, in percent, that would have been called one.

worse (1)                Old    New  Change      Interval
* idle 0 > 0, average  100.3  110.3   +9.97  +9.66..+10.3

unclear (1)            Old    New  Change      Interval  Seen
idle 0 > 1, average  102.0  102.0   +0.00  -10.9..+12.2  27.2

no verdict: too few repeats (3 and 3)
                      Old   New
idle 0 > 2, average  9.00  9.00

* idle 0 > 0: small_buffer (new)

1 worse, 0 better, 1 unclear, 0 same, 1 without a verdict. Margin: 1 %. All
    intervals hold together with 95 % confidence.
One survey a side cannot know how much runs of one machine differ: survey each
    again, several times, and compare the directories.
)");

  const Json json = to_json(comparison);
  EXPECT_EQ(json["only_old"], Json({"bandwidth/node/0/node 0"}));
  EXPECT_EQ(
      json["counts"],
      Json::parse(R"({"worse": 1, "better": 0, "unclear": 1, "same": 0, "without_verdict": 1})"));
  EXPECT_EQ(json["figures"][0]["verdict"], "worse");
  EXPECT_NEAR(json["figures"][0]["change_percent"].get<double>(), 9.97, 0.01);
  EXPECT_EQ(json["figures"][2]["reason"], "too few repeats (3 and 3)");
}

}  // namespace velmo_test
