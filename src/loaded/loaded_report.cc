#include "loaded/loaded_report.h"

#include <algorithm>
#include <string>

#include "app/log_file.h"
#include "config/memory_report.h"

namespace velmo {

void WriteLoadedSetup(std::ostream& out, const LoadedSetup& setup) {
  const LoadSetup& load = setup.load;
  const Configurator& config = load.config;
  out << "memory size (for latency)  : " << static_cast<double>(setup.size) / kBytesPerMiB
      << " MiB\n"
      << "memory size (for bandwidth): " << static_cast<double>(load.region) / kBytesPerMiB
      << " MiB/thread\n"
      << "chunk size : " << config.chunk * 8 << " Byte\n"
      << "stride size: " << setup.stride << " Byte\n"
      << "latency thread cpu-numa_id: " << setup.cpu.numa_id << '\n'
      << "latency thread cpu_id : " << setup.cpu.cpu_id << '\n'
      << "BW threads cpu-numa_id: " << load.nodes << '\n'
      << "BW threads cpu_id: " << load.cpus << '\n'
      << "main thread cpu_id: " << load.main_cpu << '\n';
  write_memory_line(out, config, static_cast<int>(load.target), "latency base addr  : 0x");
  if (config.mem_mode == kMemPhysical) {
    out << "\nbandwidth base addr: 0x" << std::hex << config.base_addr[load.target] + setup.size
        << std::dec;
  }
  out << "\nthe number of BW threads: " << load.threads << '\n'
      << "\nRead Ratio: " << config.read << " Write Ratio: " << config.write << '\n';
  if (config.stream) out << "Using non-temporal write\n";
}

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

void LogPoints(const LoadedSetup& setup, const std::vector<LoadedResult>& points) {
  const LoadSetup& load = setup.load;
  const Configurator& config = load.config;
  const std::string stem = config.output.empty()
                               ? "mem" + std::to_string(load.target) + "_loaded-lat_result_"
                               : config.output;
  LogFile log(stem + mix_name({config.read, config.write, config.stream ? 1 : 0}) + "_" +
              time_stamp() + ".txt");
  log << std::fixed;
  log.precision(2);
  log << "Loaded-Latency\n";
  if (config.full) log << "Using Full Instruction\n";
  WriteLoadedSetup(log, setup);
  log << "\nResults\n";
  WritePoints(log, points, config.verbose == 2 ? "    overhead: " : nullptr);
}

}  // namespace velmo
