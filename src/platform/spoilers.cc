#include "platform/spoilers.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <thread>

#include "app/text.h"
#include "platform/cpu_time.h"
#include "platform/node_memory.h"
#include "platform/prefetch.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// Larger shares of other work on a CPU under test are reported, in percent.
constexpr int64_t kQuiet = 10;

using Texts = std::vector<std::string>;

// "CPU 3" or "CPUs 1-3,5" for a sorted list that is not empty.
std::string cpus_text(const std::vector<int>& cpus) {
  return (cpus.size() == 1 ? "CPU " : "CPUs ") + vector_to_str_range(cpus, 0);
}

Texts missing_msr(const Subjects& subjects, const SpoilerSources& from) {
  if (!subjects.latency) return {};
  for (const int cpu : subjects.cpus) {
    const std::string device = numbered_path(from.msr, cpu);
    if (access(device.c_str(), F_OK) == 0) continue;
    return {"No " + device +
            ": the prefetchers stay on and latency is measured on a random chain. "
            "Load the driver: modprobe msr"};
  }
  return {};
}

Texts numa_balancing(const Subjects& subjects, const SpoilerSources& from) {
  std::string mode;
  if (!subjects.unbound) return {};
  if (!read_first_line(from.numa_balancing, mode) || mode.empty() || mode == "0") return {};
  return {"Automatic NUMA balancing is on (" + mode +
          "): memory that is bound to no node may fault and move while it is measured"};
}

Texts governor(const Subjects& subjects, const SpoilerSources& from) {
  std::map<std::string, std::vector<int>> cpus_by_governor;
  for (const int cpu : subjects.cpus) {
    std::string name;
    if (!read_first_line(numbered_path(from.governor, cpu), name)) continue;
    if (!name.empty() && name != "performance") cpus_by_governor[name].push_back(cpu);
  }
  Texts found;
  for (const auto& [name, cpus] : cpus_by_governor) {
    found.push_back("Frequency governor of " + cpus_text(cpus) + " is " + name +
                    ", not performance: the numbers move with the clock rate");
  }
  return found;
}

Texts clock_source(const Subjects& /*subjects*/, const SpoilerSources& from) {
  std::string name;
  if (!read_first_line(from.clock_source, name) || name.empty() || name == "tsc") return {};
  return {"Clock source is " + name +
          ", not tsc: reading the clock may take long, which makes the delays of -X coarse"};
}

Texts huge_pages(const Subjects& /*subjects*/, const SpoilerSources& from) {
  std::string modes;
  if (!read_first_line(from.huge_pages, modes)) return {};
  if (modes.find("[always]") == std::string::npos) return {};
  return {
      "Transparent huge pages are set to always: fewer TLB misses than with 4 KiB pages, so "
      "latency compares only with machines set alike"};
}

Texts node_in_use(const Subjects& subjects, const SpoilerSources& from) {
  Texts found;
  for (const int node : subjects.nodes) {
    const auto memory = read_node_memory(numbered_path(from.node_memory, node));
    if (!memory || memory->available_kb >= memory->total_kb / 2) continue;
    found.push_back("Memory node " + std::to_string(node) + " is in use, " +
                    std::to_string(100 * memory->available_kb / memory->total_kb) +
                    " % of it are free: its other users take a share of the bandwidth");
  }
  return found;
}

Texts isolated(const Subjects& subjects, const SpoilerSources& from) {
  std::string list;
  if (!subjects.known || !read_first_line(from.isolated, list)) return {};
  std::vector<int> all;
  if (!parse_list(list, all).empty()) return {};
  std::vector<int> cpus;
  std::set_intersection(all.begin(), all.end(), subjects.cpus.begin(), subjects.cpus.end(),
                        std::back_inserter(cpus));
  if (cpus.empty()) return {};
  return {"Isolated: " + cpus_text(cpus) +
          ", quiet to measure on, but threads that are not pinned never spread to them"};
}

// Empty where the file cannot be read.
std::map<int, CpuTime> cpu_times(const std::string& path) {
  std::string text;
  read_text(path, text);
  return parse_cpu_times(text);
}

Texts busy(const Subjects& subjects, const SpoilerSources& from) {
  if (!subjects.known) return {};
  const std::map<int, CpuTime> before = cpu_times(from.cpu_time);
  if (before.empty()) return {};
  from.wait();
  std::vector<int> cpus;
  int64_t most = 0;
  for (const auto& [cpu, time] : cpu_times(from.cpu_time)) {
    const auto earlier = before.find(cpu);
    if (earlier == before.end() || !std::ranges::binary_search(subjects.cpus, cpu)) continue;
    const int64_t total = time.total - earlier->second.total;
    const int64_t share = total > 0 ? 100 * (time.busy - earlier->second.busy) / total : 0;
    if (share <= kQuiet) continue;
    cpus.push_back(cpu);
    most = std::max(most, share);
  }
  if (cpus.empty()) return {};
  return {"Busy: " + cpus_text(cpus) + ", by up to " + std::to_string(most) +
          " %: other work takes time and caches from the measurement"};
}

constexpr Texts (*kChecks[])(const Subjects&, const SpoilerSources&) = {
    missing_msr, numa_balancing, governor, clock_source, huge_pages, node_in_use, isolated, busy};

}  // namespace

SpoilerSources::SpoilerSources()
    : msr(MSR_PATH), wait([] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); }) {}

Texts find_spoilers(const Subjects& subjects, const SpoilerSources& sources) {
  Texts found;
  for (const auto& check : kChecks) {
    for (std::string& text : check(subjects, sources)) found.push_back(std::move(text));
  }
  return found;
}

}  // namespace velmo
