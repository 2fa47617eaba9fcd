#include "platform/machine_counters.h"

#include <cerrno>
#include <cstring>

#include "platform/text_file.h"

namespace velmo {
namespace {

// The numbers behind words of one file, which is read once.
class WordFile {
 public:
  explicit WordFile(const std::string& path) : path_(path) {
    if (!read_text(path, text_)) failure_ = path + ": " + std::strerror(errno);
  }

  Reading operator[](const char* word) const {
    if (!failure_.empty()) return {0, failure_};
    const std::optional<int64_t> number = number_after(text_, word);
    if (!number) return {0, path_ + " has no " + word};
    return {static_cast<double>(*number)};
  }

 private:
  std::string path_;
  std::string text_;
  std::string failure_;
};

// `reading` times `scale`.
Reading scaled(Reading reading, double scale) {
  reading.value *= scale;
  return reading;
}

// Groups without a quota, and the topmost, may have no such lines.
void read_quotas(const std::vector<std::string>& groups, MachineCounters& counters) {
  constexpr double kSecondsPerUs = 1e-6;
  constexpr double kSecondsPerNs = 1e-9;
  Reading& periods = counters.throttled_periods;
  Reading& seconds = counters.throttled_seconds;
  periods.reason = seconds.reason = "no control group with a CPU quota is seen";
  for (const std::string& group : groups) {
    const WordFile file(group + "/cpu.stat");
    const Reading count = file["nr_throttled"];
    const Reading us = file["throttled_usec"];  // version 2
    const Reading ns = file["throttled_time"];  // version 1
    if (!count.known()) continue;
    periods = {periods.value + count.value};
    seconds = {seconds.value + us.value * kSecondsPerUs + ns.value * kSecondsPerNs};
  }
}

}  // namespace

MachineCounters read_machine_counters(const std::string& root,
                                      const std::vector<std::string>& cpu_groups) {
  constexpr double kSecondsPerUs = 1e-6;
  MachineCounters counters;
  // The first line is that of "some", and "total" its last word, in us.
  counters.cpu_pressure_seconds =
      scaled(WordFile(root + "/proc/pressure/cpu")["total"], kSecondsPerUs);
  counters.memory_pressure_seconds =
      scaled(WordFile(root + "/proc/pressure/memory")["total"], kSecondsPerUs);
  const WordFile memory(root + "/proc/vmstat");
  counters.swapped_in_pages = memory["pswpin"];
  counters.swapped_out_pages = memory["pswpout"];
  counters.migrated_pages = memory["pgmigrate_success"];
  read_quotas(cpu_groups, counters);
  return counters;
}

Reading read_free_bytes(int node, const std::string& root) {
  const std::string path =
      root + "/sys/devices/system/node/node" + std::to_string(node) + "/meminfo";
  constexpr double kBytes = 1024;
  return scaled(WordFile(path)["MemFree"], kBytes);
}

}  // namespace velmo
