#include "platform/usable.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>

#include "app/cpu_set.h"
#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {

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

std::vector<int> forbidden_nodes(const NodeSources& sources) {
  const std::string key = "Mems_allowed_list:";
  std::string text;
  std::vector<int> with_memory;
  if (!read_first_line(sources.with_memory, text) || !parse_list(text, with_memory).empty()) {
    return {};
  }
  std::ifstream status(sources.process_status);
  while (read_line(status, text)) {
    if (!text.starts_with(key)) continue;
    text.erase(0, key.size());
    std::replace(text.begin(), text.end(), '\t', ' ');
    std::vector<int> allowed;
    if (!parse_list(text, allowed).empty()) return {};
    std::vector<int> forbidden;
    std::ranges::set_difference(with_memory, allowed, std::back_inserter(forbidden));
    return forbidden;
  }
  return {};
}

}  // namespace velmo
