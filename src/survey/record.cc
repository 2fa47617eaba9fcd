#include "survey/record.h"

namespace velmo {

std::string memory_text(const Memory& memory) {
  if (memory.node) return "node " + std::to_string(*memory.node);
  if (!memory.device.empty()) return memory.device;
  return memory.directory.empty() ? "own nodes" : memory.directory;
}

std::string parameter_text(const Cell& cell, std::string_view name) {
  const auto found = cell.parameters.find(name);
  if (found == cell.parameters.end()) return {};
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string cell_key(const Cell& cell) {
  std::string key = cell.kind + '/' + parameter_text(cell, "scope") + '/' +
                    (cell.from.cpu_node ? std::to_string(*cell.from.cpu_node) : "all") + '/' +
                    memory_text(cell.memory);
  if (const std::string mix = parameter_text(cell, "mix"); !mix.empty()) key += '/' + mix;
  if (cell.kind == kLatencyBySize) key += '/' + parameter_text(cell, "buffer_bytes");
  return key;
}

std::optional<double> median_of(const Summary& summary, std::string_view name) {
  const auto found = summary.find(std::string(name));
  if (found == summary.end()) return std::nullopt;
  return found->second.median;
}

bool is_unreached(const Cell& cell) {
  return cell.state == kFailed && cell.repeats.empty() &&
         (cell.stopped_by == "time_limit" || cell.stopped_by == kInterrupted);
}

}  // namespace velmo
