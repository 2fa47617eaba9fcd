#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include "fleet/findings.h"
#include "fleet/fleet_report.h"
#include "fleet/host_reader.h"
#include "fleet/prometheus.h"
#include "support/subprocess.h"
#include "survey/record_json.h"

namespace velmo {
namespace {

constexpr double kGiB = 1U << 30;

Cell make_cell(const char* kind, Json parameters, Summary summary) {
  Cell cell;
  cell.kind = kind;
  cell.from = {0, "0-3"};
  cell.memory.node = 0;
  parameters["scope"] = "node";
  cell.parameters = std::move(parameters);
  cell.summary = std::move(summary);
  return cell;
}

Estimate about(double value) { return {value, value * 0.999, value * 1.001, 7, "95 %"}; }

// A host of one node whose idle latency is `ns`.
Survey make_survey(const std::string& host, double ns) {
  Survey survey;
  survey.host = host;
  survey.started = "2026-11-21T03:00:00Z";
  survey.ended = "2026-11-21T03:01:00Z";
  survey.machine = {
      {"processor", {{"name", "CPU"}, {"microcode", {{"value", nullptr}, {"reason", "?"}}}}},
      {"sockets", 1},
      {"firmware", {{"version", "1.4"}}},
      {"nodes", {{{"node", 0}, {"type", "DRAM"}, {"size_bytes", 64 * kGiB}}}},
      {"memory_modules",
       {{{"locator", "A1"}, {"size_bytes", 32 * kGiB}, {"speed_mt_s", 4800}},
        {{"locator", "B1"}, {"size_bytes", 32 * kGiB}, {"speed_mt_s", 4800}}}}};
  survey.cells.push_back(make_cell(kIdleLatency, {{"pattern", "random"}, {"pages", "4k"}},
                                   {{kAverageNs, about(ns)}, {kP99Ns, about(2 * ns)}}));
  Cell loaded = make_cell(kLoadedLatency, {{"mix", "1:0"}}, {});
  // The first point is past the peak; a half of it, 20, lies amid the last two.
  const double curve[][2] = {{38e9, 500}, {40e9, 400}, {30e9, 200}, {10e9, 100}};
  for (const auto& [bandwidth, latency] : curve) {
    loaded.points.push_back(
        {0, {}, {{kBytesPerSecond, about(bandwidth)}, {kAverageNs, about(latency)}}});
  }
  survey.cells.push_back(loaded);
  return survey;
}

class FleetTest : public testing::Test {
 protected:
  void Write(const Survey& survey) const { dir_.Write(survey.host + ".json", survey_text(survey)); }

  // `hosts` of them within 0.2 %.
  void WriteEqual(int hosts, const std::string& name = "n", double bytes = 64 * kGiB) const {
    for (int i = 0; i < hosts; ++i) {
      Survey survey = make_survey(name + std::to_string(i), 100 + 0.05 * (i % 5));
      survey.machine["nodes"][0]["size_bytes"] = bytes + (i % 3) * 0.002 * kGiB;
      Write(survey);
    }
  }

  Findings Find(const std::string& history = {}) {
    FleetFiles files = read_fleet({folder_}, Surveys::kNewest, fleet_);
    const size_t current = fleet_.hosts.size();
    if (!history.empty()) read_fleet({history}, Surveys::kAll, fleet_);
    return find_slow(fleet_, std::move(files), current, {});
  }

  const velmo_test::TempDir dir_;
  const std::string folder_ = dir_.path();
  Fleet fleet_;
};

TEST_F(FleetTest, DamagedAndForeignFilesAreNamedAndTheRestIsCompared) {
  WriteEqual(10);
  Write(make_survey("slow", 120));
  Survey older = make_survey("n3", 300);
  older.started = "2026-11-20T03:00:00Z";
  const std::string text = survey_text(make_survey("x", 300));
  Survey next = make_survey("x", 300);
  const std::map<std::string, std::string> files = {
      {"cut.json", text.substr(0, text.size() / 2)},
      {"empty.json", ""},
      {"foreign.json", R"({"benchmarks": [{"name": "x"}]})"},
      {"list.json", "[1, 2]"},
      {"noise.json", std::string("\0\xff{\"\\", 5)},
      {"older.json", survey_text(older)},
      {"twice.json", text + text},
      {"version.json", R"({"format": "velmo-survey", "format_version": "2.0", "cells": []})"}};
  for (const auto& [name, content] : files) dir_.Write(name, content);
  mkfifo((folder_ + "/pipe.json").c_str(), 0600);
  dir_.Write("notes.txt", "no survey");
  dir_.Write("missing.txt", "lost\ttimed out\n");
  const Findings findings = Find();
  ASSERT_EQ(findings.slow.size(), 1);
  EXPECT_EQ(fleet_.hosts[findings.slow[0].host].name, "slow");
  EXPECT_EQ(findings.hosts, 11);
  std::map<std::string, std::string> left_out;
  for (const Named& file : findings.files.left_out) {
    left_out[std::filesystem::path(file.name).filename()] = file.why;
  }
  EXPECT_EQ(left_out.size(), files.size() + 1) << "and the pipe";
  EXPECT_EQ(left_out["older.json"], "is an older survey of n3");
  EXPECT_EQ(left_out["empty.json"], "is empty");
  EXPECT_EQ(left_out["foreign.json"], "is no survey of velmo");
  EXPECT_EQ(findings.files.missing.at(0).why, "timed out");
}

TEST_F(FleetTest, NoPrefixOfASurveyIsASurvey) {
  const std::string text = survey_text(make_survey("x", 100));
  HostReader reader(fleet_);
  for (size_t size = 1; size + 1 < text.size(); ++size) {
    dir_.Write("x.json", text.substr(0, size));
    ASSERT_THROW(reader.read(folder_ + "/x.json"), std::runtime_error) << size;
  }
}

TEST_F(FleetTest, DoubtfulSurveysAreToBeRepeatedAndNeverSlow) {
  WriteEqual(10);
  Survey slow[3] = {make_survey("i", 150), make_survey("d", 150), make_survey("f", 150)};
  slow[0].state = kInterrupted;
  slow[1].cells[1].state = kDisturbed;
  slow[2].cells[1].state = kFailed;  // the other cell stays good
  for (const Survey& survey : slow) Write(survey);
  const Findings findings = Find();
  EXPECT_EQ(findings.again.size(), 3);
  ASSERT_EQ(findings.slow.size(), 1);
  EXPECT_EQ(fleet_.hosts[findings.slow[0].host].name, "f");
}

TEST_F(FleetTest, TheCommandNamesWhatItCannotDo) {
  WriteEqual(10);
  Write(make_survey("slow", 120));
  Write(make_survey("a b", 120));
  dir_.Write("bad/cut.json", "{");
  const struct {
    std::string options;
    int status;
    std::string message;
  } cases[] = {
      {". --exclude-list list", 3,
       "[VELMO Warning] \"a b\" is no name of a host and is not in list\n"},
      {". -o -", 1, "[VELMO Error] -o: the page needs a file, standard output has the text\n"},
      {"none", 1, "[VELMO Error] No surveys (*.json) in none\n"},
      {"bad", 1, "[VELMO Error] None of the files could be read\n"}};
  for (const auto& [options, status, message] : cases) {
    const velmo_test::Outcome outcome =
        velmo_test::RunScript("cd " + folder_ + " && mkdir -p none && $0 fleet " + options);
    EXPECT_EQ(outcome.status, status) << outcome;
    EXPECT_EQ(outcome.err, message);
  }
  EXPECT_EQ(velmo_test::ReadAll(folder_ + "/list"), "slow\n");
}

TEST_F(FleetTest, AFewHostsNeedAHistory) {
  WriteEqual(6);
  Write(make_survey("n0", 120));
  EXPECT_FALSE(Find().groups.at(0).compared);
  const std::string history = folder_ + "/history";
  for (int i = 0; i < 6; ++i) {
    dir_.Write("history/" + std::to_string(i) + ".json", survey_text(make_survey("n0", 100)));
  }
  fleet_.hosts.clear();
  const Findings findings = Find(history);
  ASSERT_EQ(findings.slow.size(), 1);
  EXPECT_EQ(fleet_.hosts[findings.slow[0].host].name, "n0");
}

TEST(Prometheus, HasBaseUnitsAndLeavesDoubtfulCellsOut) {
  Survey survey = make_survey("a\"b", 100);
  survey.cells.push_back(make_cell(kBandwidth, {{"mix", "1:0"}}, {{kBytesPerSecond, about(5e10)}}));
  survey.cells.back().state = kDisturbed;
  const std::string text = prometheus_text({survey});
  for (const char* line :
       {"velmo_idle_latency_seconds{cpu_node=\"0\",memory_node=\"0\",stat=\"average\"} 1e-07\n",
        "velmo_loaded_latency_seconds{memory_node=\"0\",mix=\"1:0\",load=\"0.5\",stat=\"average\"} "
        "1.5e-07\n",
        "velmo_survey_cells{state=\"disturbed\"} 1\n",
        "# TYPE velmo_survey_timestamp_seconds gauge\nvelmo_survey_timestamp_seconds 1795230060\n",
        "velmo_machine_info{host=\"a\\\"b\",processor=\"CPU\",microcode=\"\","}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << "in\n" << text;
  }
  EXPECT_EQ(text.find("bandwidth"), std::string::npos);
  EXPECT_NE(prometheus_text({survey, make_survey("c", 90)}).find("{host=\"c\",cpu_node="),
            std::string::npos);
}

}  // namespace
}  // namespace velmo
