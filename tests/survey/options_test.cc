#include "survey/options.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/subprocess.h"
#include "survey/record.h"

namespace velmo {
namespace {

SurveyOptions parse(const std::string& line) {
  std::istringstream in("survey " + line);
  std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word == "''" ? word.data() + 2 : word.data());
  return parse_survey_options(static_cast<int>(argv.size()), argv.data());
}

TEST(SurveyOptions, AreWhatWasAsked) {
  const SurveyOptions options = parse(
      "--thorough --only idle,loaded --cpu-nodes 0-2,5 --device /dev/a --device b --device /dev/a "
      "--size 3g --pages 2m --mixes 2:1,0:1n,2:1 --precision 0.5 --time-limit 1.5h --seed 7 -o -");
  EXPECT_EQ(options.depth, Depth::kThorough);
  EXPECT_EQ(options.kinds, (std::set<std::string>{kIdleLatency, kLoadedLatency}));
  EXPECT_EQ(options.cpu_nodes, (std::vector<int>{0, 1, 2, 5}));
  EXPECT_EQ(options.devices, (std::vector<std::string>{"/dev/a", "b"}));
  EXPECT_EQ(options.size, int64_t{3} << 30);
  EXPECT_EQ(options.pages, PageSize::k2M);
  EXPECT_EQ(options.mixes, (std::vector<Mix>{{2, 1, 0}, {0, 1, 1}}));
  EXPECT_EQ(options.precision, 0.005);
  EXPECT_EQ(options.time_limit, 5400);
  EXPECT_EQ(options.seed, 7U);
  EXPECT_EQ(options.output, "-");
  EXPECT_EQ(parse("").kinds.size(), 4U);
}

TEST(SurveyOptions, WhatMakesNoSenseIsNamed) {
  const std::pair<const char*, const char*> cases[] = {
      {"--quikc", "--quikc"},
      {"more", "more"},
      {"--quick --thorough", "--thorough"},
      {"--only idle,idel", "Unknown kind: idel"},
      {"--cpu-nodes 1-", "--cpu-nodes"},
      {"--cpu-nodes -1", "--cpu-nodes"},
      {"--memory-nodes x", "x is no list of nodes"},
      {"--size 12", "Invalid size: 12"},
      {"--size -5m", "Invalid size: -5m"},
      {"--size 1.5g", "Invalid size: 1.5g"},
      {"--size m", "size: m"},
      {"--size 99999999999999999999g", "size: 99999999999999999999g"},
      {"--size 9999999999g", "size: 9999999999g"},
      {"--device ''", "--device: the path is empty"},
      {"--only sizes --device /dev/a", "Add idle"},
      {"--pages 4m", "Unknown pages: 4m"},
      {"--mixes 1:2", "no more writes than reads"},
      {"--mixes 1:0,", ""},
      {"--mixes ,", "Invalid mix"},
      {"--mixes 2:1x", "Invalid mix: 2:1x"},
      {"--mixes 0:0n", "Invalid mix: 0:0n"},
      {"--repeats 0", "--repeats"},
      {"--precision 0", "Invalid precision"},
      {"--precision nan", "Invalid precision"},
      {"--time-limit 0", "Invalid duration: 0"},
      {"--time-limit 10d", "Invalid duration: 10d"},
      {"--time-limit nan", "Invalid duration: nan"},
      {"--time-limit inf", "Invalid duration: inf"},
      {"--seed -1", "Invalid seed: -1"},
      {"--seed 1.5", "Invalid seed: 1.5"},
  };
  for (const auto& [line, named] : cases) {
    const velmo_test::Outcome outcome = velmo_test::RunForked([&] { parse(line); });
    if (*named == '\0') {
      EXPECT_EQ(outcome.status, 0) << line << outcome;
      continue;
    }
    EXPECT_EQ(outcome.status, 1) << line << outcome;
    EXPECT_TRUE(outcome.err.starts_with(kErrorPrefix)) << line << outcome;
    EXPECT_NE(outcome.err.find(named), std::string::npos) << line << outcome;
  }
}

}  // namespace
}  // namespace velmo
