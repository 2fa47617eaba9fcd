#include "fleet/cell_reader.h"

#include <cmath>

namespace velmo {
namespace {

using simdjson::ondemand::array;
using simdjson::ondemand::field;
using simdjson::ondemand::object;
using simdjson::ondemand::value;

// Shares of a curve's largest bandwidth at which its latency is judged.
constexpr double kHalf = 0.5;
constexpr double kNineTenths = 0.9;

// Half of a 95 % interval in standard deviations of a normal estimate.
constexpr double kHalfInterval = 1.96;

// {"median", "low", "high", "interval", ...}. The range of the two to five repeats that have no
// interval is about twice the standard deviation of their median.
Measured read_estimate(object json) {
  double median = 0;
  double low = 0;
  double high = 0;
  double halves = 1;
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    if (name == "median") median = member.value().get_double();
    if (name == "low") low = member.value().get_double();
    if (name == "high") high = member.value().get_double();
    if (name == "interval" && std::string_view(member.value()) != "range") halves = kHalfInterval;
  }
  // Neither figures nor their spread may leave what a float holds.
  constexpr double kLargest = 1e30;
  const double uncertainty = (high - low) / 2 / halves / median;
  if (!(median > 0 && median < kLargest && uncertainty >= 0 && uncertainty < kLargest)) return {};
  return {median, uncertainty};
}

Source read_source(object json) {
  Source from;
  for (field member : json) {
    if (std::string_view(member.unescaped_key()) != "cpu_node") continue;
    int64_t node = 0;
    if (member.value().get_int64().get(node) == simdjson::SUCCESS) {
      from.cpu_node = static_cast<int>(node);
    }
  }
  return from;
}

Memory read_memory(object json) {
  Memory memory;
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    if (name == "node") {
      int64_t node = 0;
      if (member.value().get_int64().get(node) == simdjson::SUCCESS) {
        memory.node = static_cast<int>(node);
      }
    }
    if (name == "device") memory.device = std::string_view(member.value());
    if (name == "directory") memory.directory = std::string_view(member.value());
  }
  return memory;
}

// "idle latency 99th, node 0 to node 1"
std::string label_of(const Cell& cell, const std::string& pages, FigureClass figure_class) {
  constexpr const char* kNames[kFigureClasses] = {
      "idle latency average",    "idle latency 99th",       "idle latency 99.9th", "bandwidth",
      "latency at 50 % of peak", "latency at 90 % of peak", "peak under load"};
  std::string label = kNames[static_cast<int>(figure_class)];
  if (const std::string mix = parameter_text(cell, "mix"); !mix.empty()) label += ' ' + mix;
  const std::string scope = parameter_text(cell, "scope");
  if (scope == "large_pages") label += " on " + pages + " pages";
  if (scope == "one_thread") label += " of one thread";
  if (scope == "machine") return label + " of the machine";
  return label + ", " +
         (cell.from.cpu_node ? "node " + std::to_string(*cell.from.cpu_node) : "all") + " to " +
         memory_text(cell.memory);
}

}  // namespace

CellReader::Numbers CellReader::ReadSummary(object json) {
  Numbers numbers;
  const std::pair<std::string_view, Measured*> known[] = {{kAverageNs, &numbers.average},
                                                          {kP99Ns, &numbers.p99},
                                                          {kP999Ns, &numbers.p999},
                                                          {kBytesPerSecond, &numbers.bandwidth}};
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    for (const auto& [wanted, place] : known) {
      if (name == wanted) *place = read_estimate(member.value());
    }
  }
  return numbers;
}

void CellReader::ReadPoints(array json) {
  for (object point : json) {
    for (field member : point) {
      if (std::string_view(member.unescaped_key()) != "summary") continue;
      const Numbers numbers = ReadSummary(member.value());
      if (numbers.bandwidth.value > 0 && numbers.average.value > 0) {
        points_.push_back({numbers.bandwidth, numbers.average});
      }
    }
  }
}

void CellReader::ReadParameters(object json) {
  std::string pattern;
  std::string prefetchers;
  double stride = 0;
  double buffer = 0;
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    value content = member.value();
    if (name == "scope" || name == "mix") {
      cell_.parameters[std::string(name)] = std::string(std::string_view(content));
    }
    if (name == "pages") pages_ = std::string_view(content);
    if (name == "pattern") pattern = std::string_view(content);
    if (name == "prefetchers") prefetchers = std::string_view(content);
    if (name == "stride_bytes") stride = content.get_double();
    if (name == "buffer_bytes") buffer = content.get_double();
  }
  buffer_bytes_ = buffer;
  method_ = pattern + " at " + std::to_string(static_cast<int64_t>(stride)) + " B, pages " +
            pages_ + ", prefetchers " + prefetchers;
}

void CellReader::Add(Host& host, FigureClass figure_class, const Measured& measured) {
  if (measured.value <= 0) return;
  std::string key = cell_key(cell_);
  const auto [found, is_new] = known_.try_emplace(
      key + ' ' + pages_ + ' ' + std::to_string(static_cast<int>(figure_class)), 0);
  if (is_new) {
    std::string label = label_of(cell_, pages_, figure_class);
    found->second = names_.number({figure_class, std::move(key), pages_, std::move(label)});
  }
  host.figures.push_back({found->second, static_cast<float>(measured.value),
                          static_cast<float>(measured.uncertainty)});
}

void CellReader::AddFigures(Host& host) {
  if (cell_.kind == kIdleLatency) {
    Add(host, FigureClass::kIdleAverage, numbers_.average);
    Add(host, FigureClass::kIdle99, numbers_.p99);
    Add(host, FigureClass::kIdle999, numbers_.p999);
  } else if (cell_.kind == kBandwidth) {
    Add(host, FigureClass::kBandwidth, numbers_.bandwidth);
  } else if (cell_.kind == kLoadedLatency) {
    Add(host, FigureClass::kLoadedHalf, latency_at_share(points_, kHalf).value_or(Measured{}));
    Add(host, FigureClass::kLoadedNineTenths,
        latency_at_share(points_, kNineTenths).value_or(Measured{}));
    if (const CurvePoint* peak = peak_of(points_); peak != nullptr) {
      Add(host, FigureClass::kLoadedPeak, peak->bandwidth);
    }
  }
}

void CellReader::Read(object json, Host& host, CellsRead& read) {
  cell_ = Cell{};
  cell_.state.clear();
  pages_.clear();
  points_.clear();
  numbers_ = {};
  misplaced_ = false;
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    value content = member.value();
    if (name == "kind") cell_.kind = std::string_view(content);
    if (name == "from") cell_.from = read_source(content);
    if (name == "memory") cell_.memory = read_memory(content);
    if (name == "parameters") ReadParameters(content);
    if (name == "summary") numbers_ = ReadSummary(content);
    if (name == "points") ReadPoints(content);
    if (name == "state") cell_.state = std::string_view(content);
    if (name == "marks") {
      for (std::string_view mark : content.get_array())
        misplaced_ = misplaced_ || mark == "placement";
    }
  }
  // The last members of a cell: where they are missing, the cell is not whole.
  if (cell_.kind.empty() || cell_.state.empty()) {
    throw simdjson::simdjson_error(simdjson::NO_SUCH_FIELD);
  }
  ++read.cells;
  if (cell_.state == kFailed) {
    ++read.failed;
  } else if (cell_.state != kOk || misplaced_) {
    if (read.disturbed++ == 0) {
      read.again = cell_key(cell_) + (misplaced_ ? " misplaced" : ' ' + cell_.state);
    }
  } else {
    AddFigures(host);
    // A cell that failed may not know how it would have been measured.
    const bool of_idle = cell_.kind == kIdleLatency && parameter_text(cell_, "scope") == "node";
    if (of_idle && read.method.empty()) {
      read.method = method_;
      read.buffer_bytes = buffer_bytes_;
    }
  }
}

}  // namespace velmo
