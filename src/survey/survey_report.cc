#include "survey/survey_report.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

#include "app/table.h"
#include "survey/loaded_curve.h"
#include "survey/summary.h"
#include "survey/trust_report.h"

namespace velmo {
namespace {

using Row = std::vector<std::string>;
using Table = std::vector<Row>;

constexpr double kGb = 1e9;
constexpr double kMebibyte = 1024.0 * 1024;
constexpr char kNone[] = "-";

std::string scope_of(const Cell& cell) { return parameter_text(cell, "scope"); }

// Its figure is none of the pages that were asked for.
bool has_small_pages(const Cell& cell) {
  return std::ranges::find(cell.marks, "page_size") != cell.marks.end();
}

double buffer_bytes(const Cell& cell) {
  const Json bytes = cell.parameters.value("buffer_bytes", Json());
  return bytes.is_number() ? bytes.get<double>() : 0;
}

// "118.2 ±1.3": the value and half of its interval, both divided by `unit`. One repeat has none.
std::string value_text(const Summary& summary, const char* name, double unit, int decimals) {
  const auto found = summary.find(name);
  if (found == summary.end()) return kNone;
  const Estimate& e = found->second;
  const std::string value = fixed_text(e.median / unit, decimals);
  if (e.repeats < 2) return value;
  return value + " ±" + fixed_text((e.high - e.low) / 2 / unit, decimals);
}

std::string plain_text(const std::optional<double>& value, double unit, int decimals) {
  return value ? fixed_text(*value / unit, decimals) : kNone;
}

std::string size_text(double bytes) {
  if (bytes >= 1024 * kMebibyte) return fixed_text(bytes / kMebibyte / 1024, 1) + " GiB";
  if (bytes >= kMebibyte)
    return fixed_text(bytes / kMebibyte, bytes < 10 * kMebibyte ? 1 : 0) + " MiB";
  return fixed_text(bytes / 1024, 0) + " KiB";
}

// A member of the machine as text; empty where it is not known.
std::string machine_text(const Json& machine, const std::string& path) {
  const Json::json_pointer at(path);
  if (!machine.contains(at)) return {};
  const Json& value = machine.at(at);
  if (value.is_string()) return value.get<std::string>();
  return value.is_number() ? value.dump() : std::string();
}

void write_head(std::ostream& out, const Survey& survey) {
  const auto machine = [&](const char* path) { return machine_text(survey.machine, path); };
  out << survey.host << ", " << survey.started << ", velmo " << survey.velmo_version
      << (survey.state == kInterrupted ? ", INTERRUPTED" : "") << '\n';
  constexpr struct {
    const char* before;
    const char* path;
  } kParts[] = {{"", "/processor/name"},
                {", sockets ", "/sockets"},
                {", cores ", "/cores"},
                {", threads ", "/threads"},
                {"; Linux ", "/kernel/release"}};
  std::string line;
  for (const auto& part : kParts) {
    if (const std::string text = machine(part.path); !text.empty()) {
      line += (line.empty() ? part.before + std::strspn(part.before, ",; ") : part.before) + text;
    }
  }
  if (!line.empty()) out << line << '\n';
}

// What the survey says of one memory.
struct MemoryCells {
  Memory memory;
  const Cell* idle = nullptr;  // from the CPU node with the least latency
  const Cell* large_pages = nullptr;
  std::map<std::string, const Cell*> bandwidth;  // of the node with the most mixes, by mix
  std::vector<const Cell*> loaded;
};

double idle_average(const Cell* cell) {
  return cell == nullptr ? HUGE_VAL : median_of(cell->summary, kAverageNs).value_or(HUGE_VAL);
}

// By the memories' names, in the order of the file.
std::vector<std::pair<std::string, MemoryCells>> memories_of(const Survey& survey) {
  std::vector<std::pair<std::string, MemoryCells>> memories;
  const auto of = [&](const Cell& cell) -> MemoryCells& {
    const std::string name = memory_text(cell.memory);
    const auto found = std::ranges::find(memories, name, [](const auto& m) { return m.first; });
    if (found != memories.end()) return found->second;
    MemoryCells& fresh = memories.emplace_back(name, MemoryCells{}).second;
    fresh.memory = cell.memory;
    return fresh;
  };
  for (const Cell& cell : survey.cells) {
    if (cell.kind == kLatencyBySize || scope_of(cell) == "machine") continue;
    MemoryCells& memory = of(cell);
    if (cell.kind == kLoadedLatency) memory.loaded.push_back(&cell);
    if (cell.kind == kIdleLatency && scope_of(cell) == "large_pages") memory.large_pages = &cell;
    if (cell.kind == kIdleLatency && scope_of(cell) == "node" &&
        idle_average(&cell) < idle_average(memory.idle)) {
      memory.idle = &cell;
    }
    if (cell.kind != kBandwidth || scope_of(cell) != "node") continue;
    const Cell*& best = memory.bandwidth[parameter_text(cell, "mix")];
    const auto peak = median_of(cell.summary, kBytesPerSecond);
    if (peak && (best == nullptr || *peak > median_of(best->summary, kBytesPerSecond)))
      best = &cell;
  }
  return memories;
}

std::pair<std::string, std::string> type_and_size(const Survey& survey, const Memory& memory) {
  if (!memory.node) return {memory.device.empty() ? "directory" : "device", kNone};
  const auto nodes = survey.machine.find("nodes");
  if (nodes != survey.machine.end() && nodes->is_array()) {
    for (const Json& node : *nodes) {
      if (!node.contains("node") || node.at("node") != *memory.node) continue;
      const std::string type = machine_text(node, "/type");
      const Json size = node.value("size_bytes", Json());
      return {type.empty() ? kNone : type,
              size.is_number() ? size_text(size.get<double>()) : kNone};
    }
  }
  return {kNone, kNone};
}

void write_memories(std::ostream& out, const Survey& survey) {
  const auto memories = memories_of(survey);
  Table idle = {{"Idle latency, ns", "Type", "Size", "Average", "2 MiB pages", "99th", "99.9th"}};
  std::vector<std::string> mixes;
  for (const Cell& cell : survey.cells) {
    const std::string mix = parameter_text(cell, "mix");
    if (cell.kind == kBandwidth && scope_of(cell) == "node" &&
        std::ranges::find(mixes, mix) == mixes.end()) {
      mixes.push_back(mix);
    }
  }
  Table bandwidth = {{"Bandwidth, GB/s"}};
  for (const std::string& mix : mixes) bandwidth[0].push_back(mix);
  for (const auto& [name, memory] : memories) {
    if (memory.idle != nullptr) {
      const auto [type, size] = type_and_size(survey, memory.memory);
      const Summary& summary = memory.idle->summary;
      idle.push_back({name, type, size, value_text(summary, kAverageNs, 1, 1),
                      memory.large_pages == nullptr || has_small_pages(*memory.large_pages)
                          ? kNone
                          : value_text(memory.large_pages->summary, kAverageNs, 1, 1),
                      plain_text(median_of(summary, kP99Ns), 1, 0),
                      plain_text(median_of(summary, kP999Ns), 1, 0)});
    }
    if (memory.bandwidth.empty()) continue;
    Row& row = bandwidth.emplace_back(Row{name});
    for (const std::string& mix : mixes) {
      const auto found = memory.bandwidth.find(mix);
      const bool measured = found != memory.bandwidth.end() && found->second != nullptr;
      row.push_back(measured ? value_text(found->second->summary, kBytesPerSecond, kGb, 2) : kNone);
    }
  }
  for (const Cell& cell : survey.cells) {
    if (cell.kind != kBandwidth || scope_of(cell) == "node") continue;
    const std::string who = scope_of(cell) == "machine" ? "all CPUs, own nodes"
                                                        : "one thread, " + memory_text(cell.memory);
    Row& row = bandwidth.emplace_back(Row{who});
    for (const std::string& mix : mixes) {
      const bool own = mix == parameter_text(cell, "mix");
      row.push_back(own ? value_text(cell.summary, kBytesPerSecond, kGb, 2) : kNone);
    }
  }
  for (const Table* table : {&idle, &bandwidth}) {
    if (table->size() < 2) continue;
    out << '\n';
    write_table(out, *table);
  }
}

// CPU nodes by memories, where there is more than one pair; remote values beside their ratio to the
// least of their row.
void write_matrix(std::ostream& out, const Survey& survey, const char* kind, const char* figure,
                  const std::string& mix, double unit, int decimals, const std::string& title) {
  std::map<int, std::map<std::string, const Cell*>> rows;
  std::vector<std::string> memories;
  for (const Cell& cell : survey.cells) {
    if (cell.kind != kind || scope_of(cell) != "node" || !cell.from.cpu_node) continue;
    if (!mix.empty() && parameter_text(cell, "mix") != mix) continue;
    const std::string name = memory_text(cell.memory);
    rows[*cell.from.cpu_node][name] = &cell;
    if (std::ranges::find(memories, name) == memories.end()) memories.push_back(name);
  }
  if (rows.size() * memories.size() < 2) return;
  Table table = {{title}};
  for (const std::string& name : memories) table[0].push_back(name);
  for (const auto& [node, cells] : rows) {
    Row& row = table.emplace_back(Row{"from node " + std::to_string(node)});
    const std::string local_name = "node " + std::to_string(node);
    const auto local = cells.find(local_name);
    const auto reference =
        local != cells.end() ? median_of(local->second->summary, figure) : std::nullopt;
    for (const std::string& name : memories) {
      const auto found = cells.find(name);
      if (found == cells.end()) {
        row.emplace_back(kNone);
        continue;
      }
      std::string text = value_text(found->second->summary, figure, unit, decimals);
      const auto value = median_of(found->second->summary, figure);
      if (value && reference && name != local_name) {
        text += " (x" + fixed_text(*value / *reference, 2) + ")";
      }
      row.push_back(std::move(text));
    }
  }
  out << '\n';
  write_table(out, table);
}

// Latency at a share of the peak.
std::string loaded_text(const std::vector<CurvePoint>& curve, double share) {
  const auto latency = latency_at_share(curve, share);
  return latency ? fixed_text(latency->value, 0) : kNone;
}

void write_loaded(std::ostream& out, const Survey& survey) {
  Table table = {
      {"Under load, ns", "Peak, GB/s", "at 10 %", "at 50 %", "at 90 %", "at full", "its 99.9th"}};
  for (const Cell& cell : survey.cells) {
    if (cell.kind != kLoadedLatency || cell.points.empty()) continue;
    const Summary& peak = std::ranges::max_element(cell.points, {}, [](const Point& point) {
                            return median_of(point.summary, kBytesPerSecond);
                          })->summary;
    const std::vector<CurvePoint> curve = curve_of(cell, kAverageNs);
    table.push_back({memory_text(cell.memory) + ", " + parameter_text(cell, "mix"),
                     value_text(peak, kBytesPerSecond, kGb, 2), loaded_text(curve, 0.1),
                     loaded_text(curve, 0.5), loaded_text(curve, 0.9),
                     plain_text(median_of(peak, kAverageNs), 1, 0),
                     plain_text(median_of(peak, kP999Ns), 1, 0)});
  }
  if (table.size() < 2) return;
  out << '\n';
  write_table(out, table);
}

void write_sizes(std::ostream& out, const Survey& survey) {
  Table table = {{"Latency by size", "ns"}};
  double next = 0;  // one line a doubling
  for (const Cell& cell : survey.cells) {
    if (cell.kind != kLatencyBySize) continue;
    const double size = buffer_bytes(cell);
    if (size < next) continue;
    next = size * 1.99;
    table.push_back({size_text(size), value_text(cell.summary, kAverageNs, 1, 1)});
  }
  if (table.size() < 2) return;
  out << '\n';
  write_table(out, table);
  std::string caches;
  const auto list = survey.machine.find("caches");
  if (list == survey.machine.end() || !list->is_array()) return;
  for (const Json& cache : *list) {
    const Json size = cache.is_object() ? cache.value("size_bytes", Json()) : Json();
    if (machine_text(cache, "/type") == "Instruction" || !size.is_number()) continue;
    const std::string text =
        "L" + machine_text(cache, "/level") + " " + size_text(size.get<double>());
    if (caches.find(text) == std::string::npos) caches += (caches.empty() ? "" : ", ") + text;
  }
  if (!caches.empty()) out << "Caches: " << caches << '\n';
}

}  // namespace

std::string cell_name(const Cell& cell) {
  const std::map<std::string, std::string> kinds = {{kIdleLatency, "Idle latency"},
                                                    {kLatencyBySize, "Latency by size"},
                                                    {kBandwidth, "Bandwidth"},
                                                    {kLoadedLatency, "Loaded latency"}};
  const auto kind = kinds.find(cell.kind);
  std::string text = kind != kinds.end() ? kind->second : cell.kind;
  if (cell.from.cpu_node) text += ", node " + std::to_string(*cell.from.cpu_node);
  text += " to " + memory_text(cell.memory);
  if (const std::string mix = parameter_text(cell, "mix"); !mix.empty()) text += ", " + mix;
  if (cell.kind == kLatencyBySize) {
    text += ", " + size_text(buffer_bytes(cell));
  }
  if (const std::string scope = scope_of(cell); scope != "node") text += ", " + scope;
  return text;
}

void write_survey(std::ostream& out, const Survey& survey, const std::string& path) {
  Survey reached = survey;
  std::erase_if(reached.cells, is_unreached);
  write_head(out, reached);
  write_memories(out, reached);
  write_matrix(out, reached, kIdleLatency, kAverageNs, "", 1, 1, "Idle latency, ns");
  write_matrix(out, reached, kBandwidth, kBytesPerSecond, "1:0", kGb, 2, "Reads, GB/s");
  write_loaded(out, reached);
  write_sizes(out, reached);
  out << '\n';
  if (!path.empty()) out << "Written: " << path << '\n';
  write_failures(out, survey);
  write_unseen(out, survey);
  write_trust(out, survey);
}

}  // namespace velmo
