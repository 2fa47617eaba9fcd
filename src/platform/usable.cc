#include "platform/usable.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>

#include "app/cpu_set.h"
#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// The list behind "Mems_allowed_list:" among the lines of `status`; none: there is no such line.
std::optional<std::vector<int>> allowed_list(std::istream& status) {
  const std::string key = "Mems_allowed_list:";
  for (std::string text; read_line(status, text);) {
    if (!text.starts_with(key)) continue;
    text.erase(0, key.size());
    std::replace(text.begin(), text.end(), '\t', ' ');
    std::vector<int> allowed;
    if (parse_list(text, allowed).empty()) return allowed;
    break;
  }
  return std::nullopt;
}

}  // namespace

std::vector<int> usable_cpus() {
  const std::optional<CpuSet> before = CpuSet::OfCaller();
  if (!before) return {};
  const bool widened = CpuSet::All().ConfineCaller();
  const std::optional<CpuSet> usable = CpuSet::OfCaller();
  before->ConfineCaller();

  std::vector<int> cpus;
  if (!widened || !usable) return cpus;
  for (int cpu = 0; cpu < CpuSet::kCpus; ++cpu) {
    if (usable->Has(cpu)) cpus.push_back(cpu);
  }
  return cpus;
}

MemoryNodes memory_nodes(const NodeSources& sources) {
  std::string text;
  std::vector<int> with_memory;
  if (!read_first_line(sources.with_memory, text) || !parse_list(text, with_memory).empty()) {
    return {};
  }
  std::ifstream status(sources.process_status);
  const std::optional<std::vector<int>> allowed = allowed_list(status);
  if (!allowed) return {};
  MemoryNodes nodes;
  std::ranges::set_intersection(with_memory, *allowed, std::back_inserter(nodes.allowed));
  std::ranges::set_difference(with_memory, *allowed, std::back_inserter(nodes.forbidden));
  return nodes;
}

}  // namespace velmo
