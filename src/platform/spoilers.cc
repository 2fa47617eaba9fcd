#include "platform/spoilers.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <thread>

#include "app/text.h"
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

// Value in kB of the line "Node 0 <key>:   123 kB" of `text`; -1 when there is none.
int64_t kilobytes(const std::string& text, const std::string& key) {
  const size_t at = text.find(' ' + key + ':');
  int64_t value = -1;
  if (at != std::string::npos) std::istringstream(text.substr(at + key.size() + 2)) >> value;
  return value;
}

Texts node_in_use(const Subjects& subjects, const SpoilerSources& from) {
  Texts found;
  for (const int node : subjects.nodes) {
    std::ifstream in(numbered_path(from.node_memory, node));
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const int64_t total = kilobytes(text, "MemTotal");
    int64_t free = kilobytes(text, "MemFree");
    if (total <= 0 || free < 0) continue;
    // The page cache gives way to who asks for memory; shared memory, a part of it, does not.
    const int64_t cache =
        kilobytes(text, "FilePages") - std::max<int64_t>(kilobytes(text, "Shmem"), 0);
    free += std::max<int64_t>(cache, 0);
    if (free >= total / 2) continue;
    found.push_back("Memory node " + std::to_string(node) + " is in use, " +
                    std::to_string(100 * free / total) +
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

struct CpuTime {
  int64_t busy = 0;
  int64_t total = 0;
};

// Ticks since boot by CPU. The columns after "cpu<N>" are user, nice, system, idle, iowait, irq,
// softirq and steal (proc(5)); guests' time, behind them, is part of user's.
std::map<int, CpuTime> cpu_times(const std::string& path) {
  constexpr int kColumns = 8;
  std::map<int, CpuTime> times;
  std::ifstream in(path);
  for (std::string line; read_line(in, line);) {
    std::istringstream columns(line);
    std::string name;
    columns >> name;
    const auto cpu = name.starts_with("cpu") ? leading_number(name.substr(3)) : std::nullopt;
    if (!cpu) continue;
    CpuTime& time = times[static_cast<int>(*cpu)];
    int64_t ticks = 0;
    for (int column = 0; column < kColumns && columns >> ticks; ++column) {
      time.total += ticks;
      if (column != 3 && column != 4) time.busy += ticks;
    }
  }
  return times;
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
