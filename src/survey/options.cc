#include "survey/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <random>
#include <sstream>

#include "app/console.h"
#include "app/text.h"
#include "app/words.h"
#include "survey/record.h"

namespace velmo {
namespace {

const std::map<std::string, std::string> kKindNames = {{"idle", kIdleLatency},
                                                       {"sizes", kLatencyBySize},
                                                       {"bandwidth", kBandwidth},
                                                       {"loaded", kLoadedLatency}};
const std::map<std::string, PageSize> kPageNames = {
    {"4k", PageSize::k4K}, {"thp", PageSize::kThp}, {"2m", PageSize::k2M}, {"1g", PageSize::k1G}};

constexpr int kMaxShare = 1000;
constexpr double kMaxHours = 1000;
constexpr int64_t kMostBytes = int64_t{1} << 50;

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream in(list);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

// All of `text` as a number of type T; none where it is not.
template <typename T>
std::optional<T> number(const std::string& text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::set<std::string> parse_kinds(const std::string& list) {
  std::set<std::string> kinds;
  for (const std::string& name : split(list)) {
    const auto found = kKindNames.find(name);
    if (found == kKindNames.end()) {
      Fatal() << "Unknown kind: " << name << ". There are idle, sizes, bandwidth and loaded\n";
    }
    kinds.insert(found->second);
  }
  if (kinds.empty()) Fatal() << "--only names no kind. There are idle, sizes, bandwidth, loaded\n";
  return kinds;
}

Mix parse_mix(const std::string& text) {
  std::string shares = text;
  const bool stream = !shares.empty() && shares.back() == 'n';
  if (stream) shares.pop_back();
  const size_t colon = shares.find(':');
  const auto read = number<int>(shares.substr(0, colon));
  const auto write =
      colon == std::string::npos ? std::nullopt : number<int>(shares.substr(colon + 1));
  if (!read || !write || *read < 0 || *write < 0 || *read + *write == 0 || *read > kMaxShare ||
      *write > kMaxShare) {
    Fatal() << "Invalid mix: " << text << ". A mix is reads:writes, as 2:1, or 2:1n with "
            << "non-temporal writes\n";
  }
  if (!stream && *read < *write) {
    Fatal() << "Invalid mix: " << text << ". An ordinary write reads its line first, so there are "
            << "no more writes than reads; add n for non-temporal writes\n";
  }
  return {*read, *write, stream ? 1 : 0};
}

std::vector<int> parse_nodes(const std::string& option, const std::string& list) {
  std::vector<int> nodes;
  const std::string error = parse_list(list, nodes);
  if (!error.empty() || nodes.empty()) {
    Fatal() << option << ": " << list << " is no list of nodes, as 0-1,3\n";
  }
  return nodes;
}

double parse_duration(const std::string& text) {
  const std::map<char, double> units = {{'s', 1}, {'m', 60}, {'h', 3600}};
  std::string digits = text;
  double unit = 1;
  if (!digits.empty() && units.contains(digits.back())) {
    unit = units.at(digits.back());
    digits.pop_back();
  }
  const auto value = number<double>(digits);
  if (!value || !(*value > 0) || *value * unit > kMaxHours * 3600) {
    Fatal() << "Invalid duration: " << text << ". As 90, 90s, 10m or 2h\n";
  }
  return *value * unit;
}

char lower_case(char letter) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

int64_t parse_size(const std::string& text) {
  const std::map<char, int64_t> units = {{'k', 1 << 10}, {'m', 1 << 20}, {'g', 1 << 30}};
  std::string digits = text;
  int64_t bytes = 1;
  const auto unit = digits.empty() ? units.end() : units.find(lower_case(digits.back()));
  if (unit != units.end()) {
    bytes = unit->second;
    digits.pop_back();
  }
  const auto value = number<int64_t>(digits);
  if (!value || __builtin_mul_overflow(*value, bytes, &bytes) || bytes > kMostBytes) {
    Fatal() << "Invalid size: " << text << ". A whole number of k, m or g, as 256m\n";
  }
  constexpr int64_t kLeast = 1 << 20;
  if (bytes < kLeast) Fatal() << "Invalid size: " << text << ". At least 1m\n";
  return bytes;
}

uint64_t parse_seed(const std::string& text) {
  const auto value = number<uint64_t>(text);
  if (!value) Fatal() << "Invalid seed: " << text << ". A whole number, 0 or more\n";
  return *value;
}

// Share of a percentage.
double parse_precision(const std::string& text) {
  const auto value = number<double>(text);
  if (!value || !(*value >= 0.01 && *value <= 100)) {
    Fatal() << "Invalid precision: " << text << ". A percentage from 0.01 to 100\n";
  }
  return *value / 100;
}

// What stands behind options whose values have a form of their own.
struct Given {
  std::string only;
  std::string cpu_nodes;
  std::string memory_nodes;
  std::string size;
  std::string pages = "4k";
  std::string mixes;
  std::string limit;
  std::string precision;
  std::string seed;
  bool quick = false;
  bool thorough = false;
};

void declare(CLI::App& app, SurveyOptions& options, Given& given) {
  app.add_option("-o", options.output,
                 "File to write; - is standard output (velmo_<host>_<UTC>.json here)")
      ->type_name("FILE");
  auto* quick_flag =
      app.add_flag("--quick", given.quick, "Fewer repeats, mixes and points: under a minute");
  app.add_flag("--thorough", given.thorough, "More repeats, every loaded curve")
      ->excludes(quick_flag);
  app.add_option("--only", given.only, "Kinds of cells: idle,sizes,bandwidth,loaded")
      ->type_name("KINDS");
  app.add_option("--cpu-nodes", given.cpu_nodes, "Measure from these nodes alone")
      ->type_name("LIST");
  app.add_option("--memory-nodes", given.memory_nodes, "Measure these nodes alone")
      ->type_name("LIST");
  app.add_option("--device", options.devices, "Measure this device-DAX device, too")
      ->type_name("PATH")
      ->allow_extra_args(false);
  app.add_option("--directory", options.directories, "Measure a file in this directory, too")
      ->type_name("DIR")
      ->allow_extra_args(false);
  app.add_option("--size", given.size,
                 "Bytes of a buffer, as 256m, in place of what the caches call for")
      ->type_name("SIZE");
  app.add_option("--pages", given.pages, "Pages of the buffers: 4k, thp, 2m or 1g (4k)")
      ->type_name("PAGES");
  app.add_option("--mixes", given.mixes, "Reads:writes, n for non-temporal writes, as 1:0,2:1,2:1n")
      ->type_name("LIST");
  app.add_option("--repeats", options.repeats, "Repeats of a cell at most")
      ->check(CLI::Range(1, 1000))
      ->type_name("N");
  app.add_option("--precision", given.precision,
                 "Repeat until medians are known this well, in percent (latency 1, bandwidth 2)")
      ->type_name("PERCENT");
  app.add_option("--time-limit", given.limit, "End after this time, as 90s, 10m or 2h")
      ->type_name("DURATION");
  app.add_option("--seed", given.seed, "Order of the cells (a random one)")->type_name("N");
  app.add_flag("--strict", options.strict, "End with status 3 when a cell is disturbed or failed");
  app.add_flag("--quiet", options.quiet, "No progress and no tables");
}

// Refuses an empty path, and leaves out what was named before.
void check_paths(const char* option, std::vector<std::string>& paths) {
  std::vector<std::string> once;
  for (const std::string& path : paths) {
    if (path.empty()) Fatal() << option << ": the path is empty\n";
    if (std::ranges::find(once, path) == once.end()) once.push_back(path);
  }
  paths = once;
}

void convert(const CLI::App& app, const Given& given, SurveyOptions& options) {
  if (given.quick) options.depth = Depth::kQuick;
  if (given.thorough) options.depth = Depth::kThorough;
  for (const auto& [name, kind] : kKindNames) options.kinds.insert(kind);
  if (app.count("--only") > 0) options.kinds = parse_kinds(given.only);
  check_paths("--device", options.devices);
  check_paths("--directory", options.directories);
  const bool paths = !options.devices.empty() || !options.directories.empty();
  if (paths && !options.kinds.contains(kIdleLatency)) {
    Fatal() << "--only " << given.only << ": of devices and directories idle latency alone is "
            << "measured. Add idle, or leave out --device and --directory\n";
  }
  if (app.count("--cpu-nodes") > 0) options.cpu_nodes = parse_nodes("--cpu-nodes", given.cpu_nodes);
  if (app.count("--memory-nodes") > 0) {
    options.memory_nodes = parse_nodes("--memory-nodes", given.memory_nodes);
  }
  if (app.count("--size") > 0) options.size = parse_size(given.size);
  const auto page_name = kPageNames.find(given.pages);
  if (page_name == kPageNames.end()) {
    Fatal() << "Unknown pages: " << given.pages << ". There are 4k, thp, 2m and 1g\n";
  }
  options.pages = page_name->second;
  for (const std::string& text : split(given.mixes)) {
    const Mix mix = parse_mix(text);
    if (std::ranges::find(options.mixes, mix) == options.mixes.end()) options.mixes.push_back(mix);
  }
  if (app.count("--mixes") > 0 && options.mixes.empty()) Fatal() << "--mixes names no mix\n";
  if (app.count("--precision") > 0) options.precision = parse_precision(given.precision);
  if (app.count("--time-limit") > 0) options.time_limit = parse_duration(given.limit);
  options.seed =
      app.count("--seed") > 0 ? parse_seed(given.seed) : std::random_device()() & 0x7fffffff;
}

}  // namespace

std::string mix_text(const Mix& mix) {
  return std::to_string(mix.read) + ':' + std::to_string(mix.write) + (mix.stream != 0 ? "n" : "");
}

std::string pages_text(PageSize pages) {
  for (const auto& [name, value] : kPageNames) {
    if (value == pages) return name;
  }
  return "system";
}

SurveyOptions parse_survey_options(int argc, char** argv) {
  SurveyOptions options;
  options.arguments.assign(argv + 1, argv + argc);
  CLI::App app(
      "Measures all memory of the machine: idle latency, latency by size, bandwidth and latency "
      "under load, each with its uncertainty, and keeps it as one JSON file.",
      "velmo survey");
  Given given;
  declare(app, options, given);
  parse_word(app, argc, argv);
  convert(app, given, options);
  return options;
}

}  // namespace velmo
