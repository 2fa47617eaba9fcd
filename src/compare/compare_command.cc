#include "compare/compare_command.h"

#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/words.h"
#include "compare/compare_report.h"
#include "compare/interleaved.h"

namespace velmo {
namespace {

constexpr int kDiffers = 3;

struct Options {
  std::string old_path;
  std::string new_path;
  double margin = kDefaultMargin;
  bool json = false;
  std::string fail_on = "worse";
  bool take = false;  // the surveys, with the options below
  std::string run;
  std::vector<std::string> between;
  int rounds = 2;
};

Options parse(int argc, char** argv) {
  Options options;
  CLI::App app("Compares two surveys, or two directories of surveys, cell by cell.",
               "velmo compare");
  auto* old_option = app.add_option("OLD", options.old_path, "Survey, or directory of surveys");
  auto* new_option = app.add_option("NEW", options.new_path, "The same of what is to be judged");
  app.add_option("--margin", options.margin, "Changes up to this many percent are none")
      ->check(CLI::Range(0.0, 100.0))
      ->capture_default_str();
  app.add_flag("--json", options.json, "Print the comparison as JSON");
  app.add_option("--fail-on", options.fail_on, "End with status 3 where a figure is so")
      ->check(CLI::IsMember({"worse", "different", "never"}))
      ->capture_default_str();
  auto* run = app.add_option("--run", options.run, "Take the surveys, with these options");
  auto* between = app.add_option("--between", options.between,
                                 "Shell commands that switch to the old and the new setting")
                      ->expected(2);
  auto* rounds = app.add_option("--rounds", options.rounds, "Surveys: old, new, new, old a round")
                     ->check(CLI::Range(1, 1000))
                     ->capture_default_str();
  run->needs(between)->excludes(old_option)->excludes(new_option);
  between->needs(run);
  rounds->needs(run);
  parse_word(app, argc, argv);
  options.take = run->count() > 0;
  if (!options.take && options.new_path.empty()) {
    Fatal() << "Two surveys or directories are needed, or --run. See velmo compare --help\n";
  }
  return options;
}

// Where the surveys of --run are kept: in the working directory, by the time in UTC.
std::string new_directory() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[64];
  std::strftime(text, sizeof text, "velmo_compare_%Y%m%dT%H%M%SZ", &utc);
  return text;
}

void take_surveys(Options& options) {
  Interleaved plan;
  plan.program = std::filesystem::read_symlink("/proc/self/exe");
  plan.options = options.run;
  plan.commands[0] = options.between[0];
  plan.commands[1] = options.between[1];
  plan.rounds = options.rounds;
  plan.directory = new_directory();
  survey_interleaved(plan, std::cerr);
  std::cerr << "The surveys are kept: velmo compare " << plan.folder(0) << ' ' << plan.folder(1)
            << '\n';
  options.old_path = plan.folder(0);
  options.new_path = plan.folder(1);
}

bool is_met(const std::string& fail_on, const Comparison& comparison) {
  if (fail_on == "never") return false;
  const int better = fail_on == "different" ? comparison.count(Verdict::kBetter) : 0;
  return comparison.count(Verdict::kWorse) + better > 0;
}

}  // namespace

int run_compare(int argc, char** argv) {
  Options options = parse(argc, argv);
  try {
    if (options.take) take_surveys(options);
    const Side old_side = read_side(options.old_path);
    const Side new_side = read_side(options.new_path);
    const Comparison comparison = compare(old_side, new_side, options.margin);
    if (options.json) {
      std::cout << to_json(comparison).dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
    } else {
      write_comparison(std::cout, comparison);
    }
    check_output();
    return is_met(options.fail_on, comparison) ? kDiffers : 0;
  } catch (const std::runtime_error& failure) {
    Fatal() << failure.what() << '\n';
  }
}

}  // namespace velmo
