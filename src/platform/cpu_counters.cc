#include "platform/cpu_counters.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "app/text.h"
#include "platform/msr.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// IA32_MPERF and IA32_APERF (Intel SDM vol. 4); MPERF and APERF of AMD (APM vol. 2).
constexpr uint32_t kBaseCycles = 0xE7;
constexpr uint32_t kActualCycles = 0xE8;

std::string cpu_folder(const std::string& root, int cpu) {
  return root + "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + '/';
}

Reading number_in(const std::string& path) {
  std::string text;
  if (!read_text(path, text)) return {0, path + ": " + std::strerror(errno)};
  const std::optional<long> number = leading_number(text);
  if (!number) return {0, path + " holds no number"};
  return {static_cast<double>(*number)};
}

Reading register_of(const std::string& device, uint32_t address) {
  const std::optional<uint64_t> value = read_msr(device, address);
  if (!value) return {0, device + ": " + std::strerror(errno)};
  return {static_cast<double>(*value)};
}

}  // namespace

CpuCounters read_cpu_counters(int cpu, const std::string& root, const std::string& msr) {
  const std::string throttle = cpu_folder(root, cpu) + "thermal_throttle/";
  const std::string device = numbered_path(msr, cpu);
  CpuCounters counters = {sum_of(number_in(throttle + "core_throttle_count"),
                                 number_in(throttle + "package_throttle_count")),
                          register_of(device, kActualCycles),
                          register_of(device, kBaseCycles),
                          {0, "the registers tell"}};
  if (!counters.actual_cycles.known() || !counters.base_cycles.known()) {
    counters.clock_hz = number_in(cpu_folder(root, cpu) + "cpufreq/scaling_cur_freq");
    counters.clock_hz.value *= 1000;  // from kHz
  }
  return counters;
}

}  // namespace velmo
