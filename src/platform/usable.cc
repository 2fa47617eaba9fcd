#include "platform/usable.h"

#include <sched.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// As many CPUs as a kernel for x86-64 can have (CONFIG_NR_CPUS).
using CpuSet = std::array<cpu_set_t, 8192 / CPU_SETSIZE>;

}  // namespace

std::vector<int> usable_cpus() {
  CpuSet before{};
  if (sched_getaffinity(0, sizeof before, before.data()) < 0) return {};
  CpuSet all;
  std::fill_n(reinterpret_cast<unsigned char*>(all.data()), sizeof all, 0xFF);
  CpuSet usable{};
  const bool known = sched_setaffinity(0, sizeof all, all.data()) == 0 &&
                     sched_getaffinity(0, sizeof usable, usable.data()) == 0;
  sched_setaffinity(0, sizeof before, before.data());

  std::vector<int> cpus;
  if (!known) return cpus;
  for (int cpu = 0; cpu < static_cast<int>(8 * sizeof usable); ++cpu) {
    if (CPU_ISSET_S(cpu, sizeof usable, usable.data())) cpus.push_back(cpu);
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
