#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

#include "app/text.h"
#include "platform/caches.h"
#include "platform/msr.h"
#include "platform/prefetch.h"
#include "platform/text_file.h"
#include "survey/machine_parts.h"

namespace velmo {
namespace {

std::string cpu_file(const MachineSources& from, int cpu, const std::string& name) {
  return from.root + "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + '/' + name;
}

// The first CPU's lines "name\t: value" of /proc/cpuinfo.
Json processor(const MachineSources& from) {
  constexpr struct {
    const char* line;
    const char* member;
    bool number;
  } kMembers[] = {{"model name", "name", false},  {"vendor_id", "vendor", false},
                  {"cpu family", "family", true}, {"model", "model", true},
                  {"stepping", "stepping", true}, {"microcode", "microcode", false}};
  const std::string path = from.root + "/proc/cpuinfo";
  std::ifstream in(path);
  std::map<std::string, std::string> values;
  for (std::string line; read_line(in, line) && !line.empty();) {
    const size_t colon = line.find(':');
    const size_t end = line.find_last_not_of("\t ", colon - 1);
    if (colon == std::string::npos || colon == 0 || end == std::string::npos) continue;
    values[line.substr(0, end + 1)] = line.substr(std::min(colon + 2, line.size()));
  }
  Json json;
  for (const auto& [line, member, number] : kMembers) {
    const std::string& value = values[line];
    const std::optional<long> as_number = leading_number(value);
    if (value.empty() || (number && !as_number)) {
      json[member] = unknown("not told by " + path);
    } else {
      json[member] = number ? Json(*as_number) : Json(value);
    }
  }
  return json;
}

void count_cpus(Json& machine, const std::vector<int>& cpus, const MachineSources& from) {
  std::set<int64_t> sockets;
  std::set<std::tuple<int64_t, int64_t, int64_t>> cores;
  for (const int cpu : cpus) {
    const Json socket = number_of(cpu_file(from, cpu, "topology/physical_package_id"));
    const Json core = number_of(cpu_file(from, cpu, "topology/core_id"));
    if (!socket.is_number() || !core.is_number()) {
      machine["sockets"] = machine["cores"] = socket.is_number() ? core : socket;
      machine["threads"] = cpus.size();
      return;
    }
    // Numbers of cores may begin anew on each die; old kernels know of no dies.
    const Json die = number_of(cpu_file(from, cpu, "topology/die_id"));
    sockets.insert(socket.get<int64_t>());
    cores.emplace(socket.get<int64_t>(), die.is_number() ? die.get<int64_t>() : 0,
                  core.get<int64_t>());
  }
  const Json none = unknown(from.root + "/sys/devices/system/cpu/online cannot be read");
  machine["sockets"] = cpus.empty() ? none : Json(sockets.size());
  machine["cores"] = cpus.empty() ? none : Json(cores.size());
  machine["threads"] = cpus.empty() ? none : Json(cpus.size());
}

// One line for each kind of cache, with how many there are of it.
Json caches(const std::vector<int>& cpus, const MachineSources& from) {
  Caches found;
  found.folder_fmt = from.root + found.folder_fmt;
  found.Read(cpus);
  if (found.list.empty()) return unknown(found.folder_fmt + " cannot be read");
  std::map<std::tuple<int, std::string, int64_t, size_t>, int> kinds;
  for (const Cache& cache : found.list) {
    ++kinds[{cache.level, cache.type, cache.size_bytes, cache.cpus.size()}];
  }
  Json json = Json::array();
  for (const auto& [kind, instances] : kinds) {
    const auto& [level, type, size, shared] = kind;
    json.push_back({{"level", level},
                    {"type", type},
                    {"size_bytes", size},
                    {"shared_by_cpus", shared},
                    {"instances", instances}});
  }
  return json;
}

// What the files `name` of the CPUs hold, each text once: "performance", or "performance,
// powersave".
Json texts_of(const std::vector<int>& cpus, const std::string& name, const MachineSources& from) {
  std::set<std::string> texts;
  for (const int cpu : cpus) {
    Json text = text_of(cpu_file(from, cpu, name));
    if (!text.is_string()) return text;
    texts.insert(text.get<std::string>());
  }
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all.empty() ? unknown("no CPU is known") : Json(all);
}

// The lowest or highest clock in the files `name` of the CPUs, in Hz; the files have kHz.
Json clock_limit(const std::vector<int>& cpus, const std::string& name, bool highest,
                 const MachineSources& from) {
  Json limit;
  for (const int cpu : cpus) {
    Json hz = number_of(cpu_file(from, cpu, name), 1000);
    if (!hz.is_number()) return hz;
    if (limit.is_null() || (highest ? hz > limit : hz < limit)) limit = hz;
  }
  return limit.is_null() ? unknown("no CPU is known") : limit;
}

// Whether clocks above the base clock are allowed; each driver says it in a file of its own.
Json boost(const MachineSources& from) {
  const std::string cpu = from.root + "/sys/devices/system/cpu/";
  if (Json off = number_of(cpu + "intel_pstate/no_turbo"); off.is_number()) {
    return off == 0 ? "on" : "off";
  }
  Json on = number_of(cpu + "cpufreq/boost");
  return on.is_number() ? Json(on == 0 ? "off" : "on") : on;
}

// Of the first CPU; from the shallowest on.
Json idle_states(int cpu, const MachineSources& from) {
  Json states = Json::array();
  for (int n = 0;; ++n) {
    const std::string folder = cpu_file(from, cpu, "cpuidle/state" + std::to_string(n) + '/');
    const Json name = text_of(folder + "name");
    if (!name.is_string()) return states.empty() ? name : states;
    const Json disabled = number_of(folder + "disable");
    states.push_back({{"name", name},
                      {"latency_us", number_of(folder + "latency")},
                      {"disabled", disabled.is_number() ? Json(disabled != 0) : disabled}});
  }
}

Json mitigations(const MachineSources& from) {
  const std::string folder = from.root + "/sys/devices/system/cpu/vulnerabilities/";
  Json json = Json::object();
  for (const std::string& name : names_in(folder)) json[name] = text_of(folder + name);
  return json.empty() ? unknown(folder + " cannot be read") : json;
}

std::string hexadecimal(uint64_t value) {
  char text[2 + 16 + 1];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

Json prefetchers(int cpu, const MachineSources& from) {
  CpuInfo info;
  info.GetCpuInfo();
  find_offset(info);
  const PrefetchRegister chosen = prefetch_register();
  const std::string device = numbered_path(from.msr, cpu);
  const std::optional<uint64_t> value = read_msr(device, static_cast<uint32_t>(chosen.address));
  if (!value) return unknown(device + ": " + std::strerror(errno));
  const uint64_t off = *value & chosen.off_bits;
  const char* all_off = off == chosen.off_bits ? "off" : "partly off";
  return {{"register", hexadecimal(chosen.address)},
          {"value", hexadecimal(*value)},
          {"state", off == 0 ? "on" : all_off}};
}

}  // namespace

void describe_cpus(Json& machine, const MachineSources& from) {
  const std::vector<int> cpus = list_of(from.root + "/sys/devices/system/cpu/online");
  const int first = cpus.empty() ? 0 : cpus.front();
  machine["processor"] = processor(from);
  count_cpus(machine, cpus, from);
  machine["caches"] = caches(cpus, from);
  machine["frequency"] = {{"governor", texts_of(cpus, "cpufreq/scaling_governor", from)},
                          {"min_hz", clock_limit(cpus, "cpufreq/scaling_min_freq", false, from)},
                          {"max_hz", clock_limit(cpus, "cpufreq/scaling_max_freq", true, from)},
                          {"driver", texts_of(cpus, "cpufreq/scaling_driver", from)},
                          {"boost", boost(from)}};
  machine["idle_states"] = idle_states(first, from);
  machine["mitigations"] = mitigations(from);
  machine["prefetchers"] = prefetchers(first, from);
}

}  // namespace velmo
