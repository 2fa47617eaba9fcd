// The options of velmo survey.

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bandwidth/load_plan.h"
#include "mem/mapping.h"

namespace velmo {

enum class Depth { kQuick, kDefault, kThorough };

struct SurveyOptions {
  std::string output;  // empty: a name of its own here; "-": standard output
  Depth depth = Depth::kDefault;
  std::set<std::string> kinds;  // of cells (survey/record.h)
  std::optional<std::vector<int>> cpu_nodes;
  std::optional<std::vector<int>> memory_nodes;
  std::vector<std::string> devices;
  std::vector<std::string> directories;
  std::optional<int64_t> size;  // of the chain, and of the regions of all load threads together
  PageSize pages = PageSize::k4K;
  std::vector<Mix> mixes;           // empty: those of the depth
  std::optional<int> repeats;       // of a cell; those of sizes and loaded, too
  std::optional<double> precision;  // share of the median
  double time_limit = 0;            // s; 0: none
  uint64_t seed = 0;
  bool strict = false;
  bool quiet = false;
  std::vector<std::string> arguments;  // as they were given
};

// Parses the arguments behind the word. Help, and what does not parse or makes no sense, ends the
// program.
SurveyOptions parse_survey_options(int argc, char** argv);

// "2:1", "1:1n".
std::string mix_text(const Mix& mix);

// "4k", "thp", "2m", "1g".
std::string pages_text(PageSize pages);

}  // namespace velmo
