#include "compare/compare_command.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "compare/interleaved.h"
#include "compare/sample.h"
#include "support/subprocess.h"
#include "survey/record_json.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace)

Outcome RunCompare(std::vector<std::string> words) {
  return RunForked([&] {
    words.insert(words.begin(), "compare");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    std::exit(run_compare(static_cast<int>(argv.size()), argv.data()));
  });
}

Survey SteadySurvey(double ns) {
  return SurveyOf({CellOf(0, kAverageNs, {ns, ns + 0.1, ns + 0.2, ns + 0.3, ns + 0.4, ns + 0.5})});
}

TEST(CompareCommand, EndsWithTheStatusThatWasAskedFor) {
  const TempDir dir;
  const std::string fast = dir.Write("fast.json", survey_text(SteadySurvey(100)));
  const std::string slow = dir.Write("slow.json", survey_text(SteadySurvey(110)));
  EXPECT_EQ(RunCompare({fast, slow}).status, 3);
  EXPECT_EQ(RunCompare({slow, fast}).status, 0);
  EXPECT_EQ(RunCompare({fast, slow, "--margin", "12"}).status, 0);
  EXPECT_EQ(RunCompare({slow, fast, "--fail-on", "different"}).status, 3);
  EXPECT_EQ(RunCompare({fast, fast, "--fail-on", "different"}).status, 0);
  const Outcome json = RunCompare({fast, slow, "--fail-on", "never", "--json"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(Json::parse(json.out)["counts"]["worse"], 1);
}

TEST(CompareCommand, SaysWhatCannotBeCompared) {
  const TempDir dir;
  const std::string good = dir.Write("good.json", survey_text(SteadySurvey(100)));
  const std::string text = survey_text(SteadySurvey(100));
  Survey twice = SteadySurvey(100);
  twice.cells.push_back(twice.cells.front());
  const std::string empty_dir = dir.Write("empty/README", "");
  const std::pair<std::string, std::string> cases[] = {
      {dir.Write("cut.json", text.substr(0, text.size() / 2)), "cut short"},
      {dir.Write("void.json", ""), "not JSON"},
      {dir.Write("foreign.json", "{\"format\": \"other\"}"), "not a survey of velmo"},
      {dir.Write("twice.json", survey_text(twice)), "idle_latency/node/0/node 0 twice"},
      {dir.Write("none.json", survey_text(SurveyOf({}))), "Nothing to compare"},
      {dir.path() + "/missing.json", "No such file"},
      {dir.path() + "/empty", "no survey in this directory"},
      {dir.path(), "cut.json: no survey"},
  };
  for (const auto& [path, message] : cases) {
    const Outcome outcome = RunCompare({good, path});
    EXPECT_EQ(outcome.status, 1) << path;
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find(path.substr(0, path.find("/empty/"))), std::string::npos);
  }
  EXPECT_EQ(RunCompare({good}).status, 1);
  EXPECT_EQ(RunCompare({good, good, "--margin", "-1"}).status, 1);
  EXPECT_EQ(RunCompare({good, good, "--run", "", "--between", "true", "true"}).status, 1);
}

TEST(Interleaved, SurveysInTurnAndKeepsWhatItHas) {
  const TempDir dir;
  Interleaved plan;
  // Writes its arguments to its file, which is the third.
  plan.program = dir.Write("velmo", "#!/bin/sh\necho \"$@\" >> \"$3\"\n");
  chmod(plan.program.c_str(), 0700);
  plan.options = "--only 'idle latency'";
  plan.commands[0] = "echo a >> " + dir.path() + "/log";
  plan.commands[1] = "echo b >> " + dir.path() + "/log";
  plan.rounds = 1;
  plan.directory = dir.path() + "/kept";
  std::ostringstream progress;
  survey_interleaved(plan, progress);
  EXPECT_EQ(ReadAll(dir.path() + "/log"), "a\nb\nb\na\n");
  EXPECT_EQ(ReadAll(plan.folder(1) + "/3.json"),
            "survey -o " + plan.folder(1) + "/3.json --only idle latency\n");
  EXPECT_TRUE(std::filesystem::exists(plan.folder(0) + "/4.json"));
  EXPECT_NE(progress.str().find("Survey 2 of 4, after: " + plan.commands[1]), std::string::npos);

  const struct {
    std::string old_command, new_command, program, message;
  } failures[] = {
      {"true", "exit 5", "/bin/true", "velmo survey --only 'idle latency' left no file "},
      {"exit 5", "", "", "The command \"exit 5\" ended with status 5. 0 of 4 surveys were taken"},
      {"true", "", "/bin/false", "after \"true\", ended with status 1. 0 of 4 surveys were taken"},
      {"true", "kill -9 $$", plan.program, "ended with status 137. 1 of 4 surveys were taken"}};
  for (const auto& [old_command, new_command, program, message] : failures) {
    plan = {program, plan.options, {old_command, new_command}, 1, plan.directory + '+'};
    try {
      survey_interleaved(plan, progress);
      ADD_FAILURE() << message;
    } catch (const std::runtime_error& thrown) {
      EXPECT_NE(std::string(thrown.what()).find(message), std::string::npos) << thrown.what();
      EXPECT_NE(std::string(thrown.what()).find(plan.directory), std::string::npos);
    }
  }
  EXPECT_THROW(survey_interleaved(plan, progress), std::runtime_error);  // the directory exists
}

}  // namespace velmo_test
