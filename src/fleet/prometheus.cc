#include "fleet/prometheus.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <map>
#include <utility>

#include "survey/loaded_curve.h"

namespace velmo {
namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

constexpr double kNsPerSecond = 1e9;

constexpr std::pair<const char*, const char*> kStats[] = {
    {kAverageNs, "average"}, {kMedianNs, "median"}, {kP99Ns, "p99"}, {kP999Ns, "p99.9"}};

// Shares of a curve's largest bandwidth.
constexpr std::pair<double, const char*> kLoads[] = {{0.5, "0.5"}, {0.9, "0.9"}, {1, "1"}};

// Inside quotes, the format escapes these three.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '\\' || c == '"') out += '\\';
    out += c == '\n' ? "\\n" : std::string(1, c);
  }
  return out + '"';
}

std::string number_text(double value) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

// One metric with all its samples, as the format wants them together. Of samples with the same
// labels the first counts, since a collector refuses a file with two.
class Metric {
 public:
  Metric(const char* name, const char* help) : name_(name), help_(help) {}

  void Add(const Labels& labels, double value) {
    std::string text;
    for (const auto& [label, content] : labels) {
      text += (text.empty() ? "{" : ",") + label + '=' + quoted(content);
    }
    if (!text.empty()) text += '}';
    samples_.try_emplace(text, value);
  }

  std::string Text() const {
    if (samples_.empty()) return {};
    std::string text = "# HELP " + name_ + ' ' + help_ + "\n# TYPE " + name_ + " gauge\n";
    for (const auto& [labels, value] : samples_) {
      text += name_ + labels + ' ' + number_text(value) + '\n';
    }
    return text;
  }

 private:
  std::string name_;
  std::string help_;
  std::map<std::string, double> samples_;
};

struct Metrics {
  Metric idle{"velmo_idle_latency_seconds",
              "Latency of dependent loads from otherwise idle memory."};
  Metric bandwidth{"velmo_bandwidth_bytes_per_second",
                   "Memory traffic by all CPUs of a node but one, for a mix of reads and writes."};
  Metric loaded{"velmo_loaded_latency_seconds",
                "Latency while other CPUs generate that share of their largest traffic."};
  Metric cells{"velmo_survey_cells", "Measured cells of the survey by state."};
  Metric timestamp{"velmo_survey_timestamp_seconds", "When the survey ended, as Unix time."};
  Metric info{"velmo_machine_info", "The machine that was surveyed."};
};

std::string node_text(const std::optional<int>& node) {
  return node ? std::to_string(*node) : "all";
}

std::string memory_label(const Memory& memory) {
  return memory.node ? std::to_string(*memory.node) : memory_text(memory);
}

Labels with(Labels labels, const Labels& more) {
  labels.insert(labels.end(), more.begin(), more.end());
  return labels;
}

void add_loaded(const Cell& cell, const Labels& labels, Metric& metric) {
  for (const auto& [figure, stat] : kStats) {
    const std::vector<CurvePoint> points = curve_of(cell, figure);
    if (points.empty()) continue;
    for (const auto& [share, load] : kLoads) {
      const std::optional<Measured> latency =
          share < 1 ? latency_at_share(points, share) : peak_of(points)->latency;
      if (!latency) continue;
      metric.Add(with(labels, {{"memory_node", memory_label(cell.memory)},
                               {"mix", parameter_text(cell, "mix")},
                               {"load", load},
                               {"stat", stat}}),
                 latency->value / kNsPerSecond);
    }
  }
}

void add_cell(const Cell& cell, const Labels& labels, Metrics& metrics) {
  const Labels place = with(labels, {{"cpu_node", node_text(cell.from.cpu_node)},
                                     {"memory_node", memory_label(cell.memory)}});
  if (cell.kind == kIdleLatency) {
    for (const auto& [figure, stat] : kStats) {
      const std::optional<double> ns = median_of(cell.summary, figure);
      if (ns) metrics.idle.Add(with(place, {{"stat", stat}}), *ns / kNsPerSecond);
    }
  } else if (cell.kind == kBandwidth) {
    const std::optional<double> bytes = median_of(cell.summary, kBytesPerSecond);
    if (bytes) metrics.bandwidth.Add(with(place, {{"mix", parameter_text(cell, "mix")}}), *bytes);
  } else if (cell.kind == kLoadedLatency) {
    add_loaded(cell, labels, metrics.loaded);
  }
}

void add_cells(const Survey& survey, const Labels& labels, Metrics& metrics) {
  std::map<std::string, int> states = {{kOk, 0}, {kDisturbed, 0}, {kFailed, 0}};
  for (const Cell& cell : survey.cells) {
    ++states[cell.state];
    // One thread alone, and large pages, would have the labels of other cells.
    if (cell.state == kOk && parameter_text(cell, "scope") == "node") {
      add_cell(cell, labels, metrics);
    }
  }
  for (const auto& [state, cells] : states) {
    metrics.cells.Add(with(labels, {{"state", state}}), cells);
  }
}

// Empty for what is not known.
std::string machine_text(const Json& machine, const char* pointer) {
  const Json::json_pointer at(pointer);
  if (!machine.contains(at)) return {};
  const Json& value = machine[at];
  if (value.is_string()) return value.get<std::string>();
  return value.is_number() ? value.dump() : "";
}

void add_machine(const Survey& survey, Metrics& metrics) {
  constexpr std::pair<const char*, const char*> kInfo[] = {
      {"processor", "/processor/name"},
      {"microcode", "/processor/microcode"},
      {"sockets", "/sockets"},
      {"cores", "/cores"},
      {"threads", "/threads"},
      {"kernel", "/kernel/release"},
      {"firmware", "/firmware/version"},
      {"hypervisor", "/hypervisor"},
      {"governor", "/frequency/governor"},
      {"huge_pages", "/huge_pages/transparent"}};
  Labels labels = {{"host", survey.host}};
  for (const auto& [label, pointer] : kInfo) {
    labels.emplace_back(label, machine_text(survey.machine, pointer));
  }
  labels.emplace_back("velmo", survey.velmo_version);
  labels.emplace_back("survey", survey.state);
  metrics.info.Add(labels, 1);
}

}  // namespace

std::string prometheus_text(std::vector<Survey> surveys) {
  std::sort(surveys.begin(), surveys.end(), [](const Survey& a, const Survey& b) {
    return a.host != b.host ? a.host < b.host : a.started > b.started;
  });
  const auto last = std::unique(surveys.begin(), surveys.end(),
                                [](auto& newer, auto& older) { return newer.host == older.host; });
  surveys.erase(last, surveys.end());
  Metrics metrics;
  for (const Survey& survey : surveys) {
    const Labels labels = surveys.size() > 1 ? Labels{{"host", survey.host}} : Labels{};
    add_cells(survey, labels, metrics);
    tm ended{};
    if (strptime(survey.ended.c_str(), "%Y-%m-%dT%H:%M:%SZ", &ended) != nullptr) {
      metrics.timestamp.Add(labels, static_cast<double>(timegm(&ended)));
    }
    add_machine(survey, metrics);
  }
  std::string text;
  for (const Metric* metric : {&metrics.idle, &metrics.bandwidth, &metrics.loaded, &metrics.cells,
                               &metrics.timestamp, &metrics.info}) {
    text += metric->Text();
  }
  return text;
}

}  // namespace velmo
