#include "survey/watch_json.h"

#include <cmath>
#include <cstdint>

namespace velmo {
namespace {

struct Member {
  const char* name;
  Reading WatchRecord::*reading;
};

constexpr Member kThreads[] = {
    {"cpu_seconds", &WatchRecord::cpu_seconds},
    {"waited_seconds", &WatchRecord::waited_seconds},
    {"paused_seconds", &WatchRecord::paused_seconds},
    {"involuntary_switches", &WatchRecord::involuntary_switches},
    {"voluntary_switches", &WatchRecord::voluntary_switches},
    {"migrations", &WatchRecord::migrations},
    {"minor_faults", &WatchRecord::minor_faults},
    {"major_faults", &WatchRecord::major_faults},
};

constexpr Member kCpus[] = {
    {"stolen_seconds", &WatchRecord::stolen_seconds},
    {"interrupt_seconds", &WatchRecord::interrupt_seconds},
    {"other_work_seconds", &WatchRecord::other_work_seconds},
    {"throttle_count", &WatchRecord::throttle_count},
    {"clock", &WatchRecord::clock},
};

constexpr Member kOtherCpus[] = {
    {"busy_seconds", &WatchRecord::other_cpus_busy_seconds},
    {"busiest_seconds", &WatchRecord::busiest_cpu_seconds},
};

constexpr Member kMachine[] = {
    {"cpu_pressure_seconds", &WatchRecord::cpu_pressure_seconds},
    {"memory_pressure_seconds", &WatchRecord::memory_pressure_seconds},
    {"throttled_periods", &WatchRecord::throttled_periods},
    {"throttled_seconds", &WatchRecord::throttled_seconds},
    {"swapped_in_pages", &WatchRecord::swapped_in_pages},
    {"swapped_out_pages", &WatchRecord::swapped_out_pages},
    {"migrated_pages", &WatchRecord::migrated_pages},
};

// Counts without a fraction, and no digits below a nanosecond.
Json to_json(const Reading& reading) {
  const auto whole = static_cast<int64_t>(reading.value);
  if (reading.known() && static_cast<double>(whole) == reading.value) return whole;
  if (reading.known()) return std::round(reading.value * 1e9) / 1e9;
  return {{"value", nullptr}, {"reason", reading.reason}};
}

template <size_t kCount>
Json members(Json json, const WatchRecord& record, const Member (&list)[kCount]) {
  for (const Member& member : list) json[member.name] = to_json(record.*member.reading);
  return json;
}

}  // namespace

Json watch_json(const WatchRecord& record) {
  Json json = {{"seconds", to_json(Reading{record.seconds})},
               {"threads", members({{"count", record.threads}}, record, kThreads)},
               {"cpus", members({{"count", record.cpus}}, record, kCpus)},
               {"other_cpus", members({{"count", record.other_cpus}}, record, kOtherCpus)},
               {"machine", members(Json::object(), record, kMachine)},
               {"nodes", Json::array()}};
  if (record.clock.known()) json["cpus"]["clock_unit"] = record.clock_unit;
  if (record.busiest_cpu >= 0) json["other_cpus"]["busiest_cpu"] = record.busiest_cpu;
  for (const WatchedNode& node : record.nodes) {
    json["nodes"].push_back({{"node", node.node},
                             {"free_bytes_before", to_json(node.free_bytes_before)},
                             {"free_bytes_after", to_json(node.free_bytes_after)}});
  }
  return json;
}

std::optional<ClockReference> clock_of(const Json& watch) {
  if (!watch.is_object() || !watch.contains("cpus")) return std::nullopt;
  const Json& cpus = watch.at("cpus");
  if (!cpus.contains("clock_unit") || !cpus.at("clock").is_number()) return std::nullopt;
  return ClockReference{cpus.at("clock").get<double>(), cpus.at("clock_unit").get<std::string>()};
}

void put_watch(Repeat& repeat, const WatchRecord& record,
               const std::optional<ClockReference>& first) {
  repeat.watch = watch_json(record);
  for (const BrokenRule& broken : broken_rules(record, first)) {
    repeat.disturbed_by.push_back({broken.rule, broken.value, broken.limit, broken.unit});
  }
}

}  // namespace velmo
