#include "survey/survey_command.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <string>

#include "app/console.h"
#include "app/new_file.h"
#include "app/text.h"
#include "app/threads.h"
#include "app/tsc.h"
#include "app/version.h"
#include "platform/prefetch.h"
#include "survey/commit.h"
#include "survey/machine.h"
#include "survey/options.h"
#include "survey/plan_time.h"
#include "survey/record_json.h"
#include "survey/runner.h"
#include "survey/survey_report.h"

namespace velmo {
namespace {

std::string utc(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[64];
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

std::string host_name() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

// A host's name as a part of a file's name.
std::string plain(std::string name) {
  std::ranges::replace_if(
      name, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '.'; }, '_');
  return name;
}

// One line on a terminal that is drawn anew before every repeat, and erased at the end. Where
// standard error is no terminal, nothing is shown.
class ProgressOnTerminal {
 public:
  explicit ProgressOnTerminal(bool quiet) : shown_(!quiet && isatty(STDERR_FILENO) == 1) {}
  ~ProgressOnTerminal() {
    if (shown_) std::cerr << kEraseLine << std::flush;
  }
  ProgressOnTerminal(const ProgressOnTerminal&) = delete;
  ProgressOnTerminal& operator=(const ProgressOnTerminal&) = delete;

  void Show(const RunnerProgress& at) const {
    if (!shown_) return;
    std::string text = "Round " + std::to_string(at.round) + ", cell " + std::to_string(at.number) +
                       " of " + std::to_string(at.cells) + ", about " +
                       duration_text(at.seconds_left) + " left: " + cell_name(at.plan.cell);
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    text.resize(std::min<size_t>(text.size(), known ? size.ws_col - 1 : 79));
    std::cerr << kEraseLine << text << std::flush;
  }

 private:
  bool shown_;
};

// The status of a survey that is written; exit(1) where no cell was measured.
int status_of(const Survey& survey, bool strict) {
  if (const int signum = EndSignalsNoted::signal(); signum != 0) return 128 + signum;
  const auto has = [&](const char* state) {
    return std::ranges::any_of(survey.cells, [&](const Cell& c) { return c.state == state; });
  };
  if (!has(kOk) && !has(kDisturbed)) {
    Fatal() << "Nothing was measured. " << survey.cells.front().message << '\n';
  }
  return strict && (has(kDisturbed) || has(kFailed)) ? 3 : 0;
}

// Where the survey goes is tried before it is made: a result must not be lost for want of a place.
void check_place(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (access(directory.c_str(), W_OK | X_OK) != 0) {
    const char* const why = std::strerror(errno);
    Fatal() << "Cannot write " << path << ": directory " << directory << ": " << why << '\n';
  }
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    Fatal() << "Cannot write " << path << ": it exists and is not a regular file\n";
  }
}

std::string usual_name(const Survey& survey) {
  return "velmo_" + plain(survey.host) + utc("_%Y%m%dT%H%M%SZ.json");
}

// Writes the text of a survey to `path`, "-" being standard output. Empty: done; else what failed.
std::string deliver(const std::string& path, const std::string& text) {
  if (path != "-") return replace_file(path, text);
  std::cout << text << std::flush;
  return std::cout ? "" : "Failed to write to standard output";
}

// Keeps the text of a survey that could not be written among the temporary files, or shows it;
// tells where.
std::string rescue(const Survey& survey, const std::string& text) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  const std::string path = folder / usual_name(survey);
  if (!error && replace_file(path, text).empty()) return ". The survey is in " + path;
  return deliver("-", text).empty() ? ". The survey is on standard output" : "";
}

void run_cells(const SurveyOptions& options, double ticks, Survey& survey) {
  const Topology machine = read_topology();
  std::vector<CellPlan> plan = plan_cells(options, machine);
  if (plan.empty()) Fatal() << "There is nothing to measure: no node has both CPUs and memory\n";
  if (lacks_large_pages(options, plan)) {
    survey.run_notes["large_pages"] = {
        {"value", nullptr},
        {"reason",
         "transparent huge pages are off (never), and no pool of 2 MiB pages has a free one"}};
  }
  if (!options.quiet) {
    const double seconds = plan_seconds(plan) * (1 + kExtraShare);
    const bool limited = options.time_limit > 0 && options.time_limit < seconds;
    std::cerr << plan.size() << (plan.size() == 1 ? " cell, " : " cells, ")
              << (limited ? "no more than " : "about ")
              << duration_text(limited ? options.time_limit : seconds) << '\n';
  }
  CpuInfo cpu;
  cpu.GetCpuInfo();
  find_offset(cpu);
  std::set<int> stuck;
  const ProgressOnTerminal progress(options.quiet);
  Runner runner(
      std::move(plan),
      {.seed = options.seed, .time_limit = options.time_limit, .ticks_per_second = ticks},
      [&](const CellPlan& cell, double limit) {
        return measure_in_child(cell, ticks, limit, stuck);
      },
      [&](const RunnerProgress& at) { progress.Show(at); });
  runner.Run();
  survey.cells = runner.TakeCells();
  if (runner.skipped() > 0) survey.run_notes["cells_skipped"] = runner.skipped();
}

}  // namespace

int run_survey(int argc, char** argv) {
  const SurveyOptions options = parse_survey_options(argc, argv);
  change_scheduling_priority(-20);
  Survey survey;
  survey.velmo_version = kVersion;
  survey.velmo_commit = velmo_commit();
  survey.host = host_name();
  survey.started = utc("%Y-%m-%dT%H:%M:%SZ");
  survey.arguments = options.arguments;
  survey.seed = options.seed;
  std::string path = options.output;
  if (path.empty()) path = usual_name(survey);
  if (path != "-") check_place(path);

  const double ticks = counter_rate();
  survey.run_notes["counter_hz"] = ticks;
  survey.machine = describe_machine();
  const EndSignalsNoted signals;
  run_cells(options, ticks, survey);
  survey.ended = utc("%Y-%m-%dT%H:%M:%SZ");
  if (EndSignalsNoted::signal() != 0) survey.state = kInterrupted;

  std::ostream& tables = path == "-" ? std::cerr : std::cout;
  const std::string text = survey_text(survey);
  const std::string failure = deliver(path, text);
  if (!options.quiet) write_survey(tables, survey, failure.empty() && path != "-" ? path : "");
  if (!failure.empty()) Fatal() << failure << rescue(survey, text) << '\n';
  check_output();
  return status_of(survey, options.strict);
}

}  // namespace velmo
