#include <algorithm>
#include <cstdint>
#include <sstream>

#include "app/text.h"
#include "platform/memory_modules.h"
#include "platform/text_file.h"
#include "survey/machine_parts.h"

namespace velmo {
namespace {

// The kernel's own figures for accesses from the nearest CPUs and memory initiators (class 0) and
// from the nearest CPUs (class 1), in its units; they come from the firmware.
Json access_classes(const std::string& node_folder) {
  constexpr const char* kFigures[][2] = {{"read_latency", "read_latency_ns"},
                                         {"write_latency", "write_latency_ns"},
                                         {"read_bandwidth", "read_bandwidth_mb_per_second"},
                                         {"write_bandwidth", "write_bandwidth_mb_per_second"}};
  Json classes = Json::array();
  for (const int number : {0, 1}) {
    const std::string folder = node_folder + "access" + std::to_string(number) + "/initiators";
    const std::vector<std::string> names = names_in(folder);
    if (names.empty()) continue;
    Json entry = {{"class", number}, {"initiators", Json::array()}};
    for (const std::string& name : names) {
      const std::optional<long> node =
          leading_number(name.substr(std::min<size_t>(4, name.size())));
      if (name.starts_with("node") && node) entry["initiators"].push_back(*node);
    }
    for (const auto& [file, member] : kFigures) entry[member] = number_of(folder + '/' + file);
    classes.push_back(entry);
  }
  return classes.empty() ? unknown("the kernel has none: the firmware names no performance")
                         : classes;
}

Json kilobytes(const std::string& meminfo, const char* key) {
  const std::optional<int64_t> value = number_after(meminfo, key);
  if (!value || *value < 0 || *value > INT64_MAX / 1024) {
    return unknown(std::string("no ") + key + " in the node's meminfo");
  }
  return *value * 1024;
}

Json distances(const std::string& path) {
  Json text = text_of(path);
  if (!text.is_string()) return text;
  std::istringstream in(text.get<std::string>());
  Json list = Json::array();
  for (int distance = 0; in >> distance;) list.push_back(distance);
  return list.empty() ? unknown(path + " holds no number") : list;
}

Json nodes(const MachineSources& from) {
  const std::string folder = from.root + "/sys/devices/system/node/";
  Json json = Json::array();
  for (const int node : list_of(folder + "online")) {
    const std::string at = folder + "node" + std::to_string(node) + '/';
    std::string cpus;
    read_first_line(at + "cpulist", cpus);
    std::string meminfo;
    read_text(at + "meminfo", meminfo);
    json.push_back({{"node", node},
                    {"cpus", cpus},
                    {"type", cpus.empty() ? "without CPUs" : "DRAM"},
                    {"size_bytes", kilobytes(meminfo, "MemTotal")},
                    {"free_bytes", kilobytes(meminfo, "MemFree")},
                    {"distances", distances(at + "distance")},
                    {"access_classes", access_classes(at)}});
  }
  return json.empty() ? unknown(folder + "online cannot be read") : json;
}

Json memory_modules(const MachineSources& from) {
  const MemoryModules modules = read_memory_modules(from.search_path, from.root);
  if (modules.list.empty()) return unknown(modules.reason);
  const auto known = [](auto value) {
    return value == decltype(value){} ? unknown("the firmware does not tell") : Json(value);
  };
  Json json = Json::array();
  for (const MemoryModule& module : modules.list) {
    json.push_back({{"locator", known(module.locator)},
                    {"size_bytes", module.size_bytes},
                    {"type", known(module.type)},
                    {"speed_mt_s", known(module.speed_mt_s)},
                    {"configured_speed_mt_s", known(module.configured_speed_mt_s)}});
  }
  return json;
}

// The chosen one of "always [madvise] never".
Json chosen(const std::string& path) {
  Json text = text_of(path);
  if (!text.is_string()) return text;
  const auto all = text.get<std::string>();
  const size_t open = all.find('[');
  const size_t close = all.find(']', open);
  if (close == std::string::npos) return unknown(path + " names no choice: " + all);
  return all.substr(open + 1, close - open - 1);
}

Json huge_pages(const MachineSources& from) {
  const std::string folder = from.root + "/sys/kernel/mm/hugepages/";
  Json pools = Json::array();
  for (const std::string& name : names_in(folder)) {
    constexpr std::string_view kPrefix = "hugepages-";  // of "hugepages-2048kB"
    if (!name.starts_with(kPrefix)) continue;
    const std::optional<long> kb = leading_number(name.substr(kPrefix.size()));
    if (!kb) continue;
    pools.push_back({{"size_bytes", *kb * 1024},
                     {"total", number_of(folder + name + "/nr_hugepages")},
                     {"free", number_of(folder + name + "/free_hugepages")}});
  }
  return {{"transparent", chosen(from.root + "/sys/kernel/mm/transparent_hugepage/enabled")},
          {"pools", pools.empty() ? unknown(folder + " cannot be read") : pools}};
}

}  // namespace

void describe_memory(Json& machine, const MachineSources& from) {
  machine["nodes"] = nodes(from);
  machine["memory_modules"] = memory_modules(from);
  machine["huge_pages"] = huge_pages(from);
  machine["numa_balancing"] = number_of(from.root + "/proc/sys/kernel/numa_balancing");
}

}  // namespace velmo
