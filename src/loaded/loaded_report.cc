// The points of a loaded-latency sweep on the console and in the log.

#include "loaded/loaded_report.h"

#include <algorithm>
#include <iostream>
#include <string>

#include "app/console.h"
#include "app/log_file.h"
#include "loaded/loaded_latency.h"
#include "mem/memory_report.h"

namespace velmo {

void WritePoint(std::ostream& out, const LoadedResult& point, bool overhead) {
  out << "Delay: " << static_cast<unsigned int>(point.delay)
      << "\n  Avg. Bandwidth: " << point.bandwidth
      << " MB/s\n  Avg. Latency  : " << point.avg_latency << " ns\n";
  if (overhead) out << "overhead      : " << point.overhead << " ns\n";
}

void WritePoints(std::ostream& out, const std::vector<LoadedResult>& points,
                 const char* overhead_label) {
  double max_bw = 0;
  for (const LoadedResult& point : points) max_bw = std::max(max_bw, point.bandwidth);
  for (const LoadedResult& point : points) {
    out.precision(0);
    out << "Delay: " << point.delay << '\n';
    out.precision(2);
    out << "  Avg. Bandwidth: " << point.bandwidth << " MB/s (" << 100 * point.bandwidth / max_bw
        << " %) \n";
    out.precision(0);
    out << "Latency: \n"
        << "    Avg.  : " << point.avg_latency << " ns\n"
        << "    Median: " << point.median << " ns\n"
        << "    99th  : " << point.p99 << " ns\n"
        << "    99.9th: " << point.p999 << " ns\n";
    if (overhead_label != nullptr) out << overhead_label << point.overhead << " ns\n";
  }
  out.precision(2);
}

void LoadedLatency::PrintResult() {
  std::sort(results_.begin(), results_.end(),
            [](const Result& a, const Result& b) { return a.delay < b.delay; });
  std::cout << "\nFinal Results\n";
  WritePoints(std::cout, results_, config_.verbose == 2 ? "overhead: " : nullptr);
  if (config_.verbose >= 1) WriteLog();
}

void LoadedLatency::WriteHeader(std::ostream& out) const {
  out << "memory size (for latency)  : " << static_cast<double>(lat_size_) / kBytesPerMiB
      << " MiB\n"
      << "memory size (for bandwidth): " << static_cast<double>(buf_size_) / kBytesPerMiB
      << " MiB/thread\n"
      << "chunk size : " << config_.chunk * 8 << " Byte\n"
      << "stride size: " << chase_.stride << " Byte\n"
      << "latency thread cpu-numa_id: " << lat_cpu_.numa_id << '\n'
      << "latency thread cpu_id : " << lat_cpu_.cpu_id << '\n'
      << "BW threads cpu-numa_id: " << bw_numa_str_ << '\n'
      << "BW threads cpu_id: " << bw_cpus_str_ << '\n'
      << "main thread cpu_id: " << bw_cpus_.front() << '\n';
  write_memory_line(out, config_, static_cast<int>(node_idx_), "latency base addr  : 0x");
  if (config_.mem_mode == kMemPhysical) {
    out << "\nbandwidth base addr: 0x" << std::hex << config_.base_addr[node_idx_] + lat_size_
        << std::dec;
  }
  out << "\nthe number of BW threads: " << thread_num_ - 1 << '\n'
      << "\nRead Ratio: " << config_.read << " Write Ratio: " << config_.write << '\n';
  if (config_.stream) out << "Using non-temporal write\n";
}

void LoadedLatency::WriteLog() const {
  const std::string stem = config_.output.empty()
                               ? "mem" + std::to_string(node_idx_) + "_loaded-lat_result_"
                               : config_.output;
  LogFile log(stem + MixName(ConfiguredMix()) + "_" + time_stamp() + ".txt");
  log << std::fixed;
  log.precision(2);
  log << "Loaded-Latency\n";
  if (config_.full) log << "Using Full Instruction\n";
  WriteHeader(log);
  log << "\nResults\n";
  WritePoints(log, results_, config_.verbose == 2 ? "    overhead: " : nullptr);
}

}  // namespace velmo
