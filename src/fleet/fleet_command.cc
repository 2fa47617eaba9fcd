#include "fleet/fleet_command.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/new_file.h"
#include "app/words.h"
#include "fleet/findings.h"
#include "fleet/fleet_files.h"
#include "fleet/fleet_page.h"
#include "fleet/fleet_report.h"
#include "fleet/threshold.h"
#include "report/page.h"

namespace velmo {
namespace {

constexpr int kSlowHosts = 3;  // exit status

struct Options {
  std::vector<std::string> paths;
  std::string page;
  std::string history;
  std::string exclude_list;
  bool json = false;
  std::optional<double> threshold;
  double floor_percent = 3;
};

Options parse_options(int argc, char** argv) {
  CLI::App app(
      "Compares the surveys of many machines that should be equal, and names the slow ones.\n"
      "Exit status: 0 none is slow, 3 some are, 1 an error.",
      "velmo fleet");
  Options options;
  app.add_option("PATH", options.paths,
                 "Surveys, or directories of which the files *.json are surveys")
      ->required();
  app.add_option("-o", options.page, "Write a page for a browser, too");
  app.add_flag("--json", options.json, "Print the findings as JSON");
  app.add_option("--history", options.history,
                 "Directory of earlier surveys, to which groups of few hosts are compared");
  app.add_option("--exclude-list", options.exclude_list,
                 "Write the names of slow hosts as sbatch --exclude takes them");
  app.add_option("--threshold", options.threshold,
                 "Robust standard deviations beyond which a figure is slow, 4 and more; by default "
                 "what keeps false names to one in ten reports")
      ->check(CLI::Range(kLeastScore, 1e6));
  app.add_option("--floor", options.floor_percent,
                 "Least change in percent for which a figure is slow")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1e6));
  parse_word(app, argc, argv);
  if (options.page == "-") Fatal() << "-o: the page needs a file, standard output has the text\n";
  check_page_place(options.page);
  return options;
}

// Those of the current surveys that stand in the history too are no second witness.
void add_history(const std::string& directory, Fleet& fleet) {
  const size_t current = fleet.hosts.size();
  std::set<std::pair<std::string, std::string>> known;
  for (const Host& host : fleet.hosts) known.emplace(host.name, host.started);
  read_fleet({directory}, Surveys::kAll, fleet);
  fleet.hosts.erase(
      std::remove_if(fleet.hosts.begin() + static_cast<ptrdiff_t>(current), fleet.hosts.end(),
                     [&known](const Host& host) {
                       return known.contains({host.name, host.started});
                     }),
      fleet.hosts.end());
}

void write_file(const std::string& path, const std::string& text) {
  const std::string failure = replace_file(path, text);
  if (!failure.empty()) Fatal() << failure << '\n';
}

void write_exclude_list(const std::string& path, const Fleet& fleet, const Findings& findings) {
  std::vector<std::string> refused;
  write_file(path, exclude_list(fleet, findings, refused));
  for (const std::string& name : refused) {
    Warn() << '"' << name << "\" is no name of a host and is not in " << path << '\n';
  }
}

}  // namespace

int run_fleet(int argc, char** argv) {
  const Options options = parse_options(argc, argv);
  Fleet fleet;
  Findings findings;
  try {
    FleetFiles files = read_fleet(options.paths, Surveys::kNewest, fleet);
    if (files.files == 0) Fatal() << "No surveys (*.json) in " << options.paths.front() << '\n';
    const size_t current = fleet.hosts.size();
    if (!options.history.empty()) add_history(options.history, fleet);
    constexpr double kPercent = 100;
    findings = find_slow(fleet, std::move(files), current,
                         {options.threshold, options.floor_percent / kPercent});
  } catch (const std::runtime_error& failure) {
    Fatal() << failure.what() << '\n';
  }
  if (!options.exclude_list.empty()) write_exclude_list(options.exclude_list, fleet, findings);
  if (!options.page.empty()) write_file(options.page, fleet_page(fleet, findings));
  // Standard output is flushed after each piece: it gets the text in one.
  std::ostringstream text;
  if (options.json) {
    text << findings_json(fleet, findings).dump(1, ' ', false, Json::error_handler_t::replace)
         << '\n';
  } else {
    write_findings(text, fleet, findings);
  }
  std::cout << text.str();
  check_output();
  if (findings.hosts == 0) Fatal() << "None of the files could be read\n";
  return findings.slow.empty() ? 0 : kSlowHosts;
}

}  // namespace velmo
