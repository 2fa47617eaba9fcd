#include "bandwidth/bandwidth_report.h"

#include <iomanip>

#include "app/log_file.h"
#include "config/memory_report.h"

namespace velmo {
namespace {

void WriteRegion(std::ostream& out, const LoadSetup& setup) {
  out << "memory size: " << static_cast<double>(setup.region) / kBytesPerMiB << " MiB/thread\n";
}

// The threads' nodes and CPUs and the memory target.
void WriteCpusAndMemory(std::ostream& out, const LoadSetup& setup) {
  out << "cpu-numa_id: " << setup.nodes << '\n'
      << "BW threads cpu_id: " << setup.cpus << '\n'
      << "main thread cpu_id: " << setup.main_cpu << '\n';
  write_memory_line(out, setup.config, static_cast<int>(setup.target), "base addr  : 0x");
  out << '\n';
}

void WriteThreads(std::ostream& out, const LoadSetup& setup) {
  out << "the number of BW threads: " << setup.threads << '\n';
}

void WriteStores(std::ostream& out, const Mix& mix) {
  if (mix.stream != 0) out << "Using non-temporal write\n";
}

}  // namespace

void WriteLoad(std::ostream& out, const LoadSetup& setup) {
  WriteCpusAndMemory(out, setup);
  WriteRegion(out, setup);
  WriteThreads(out, setup);
  out << "(Sequential)\n";
}

void WriteMix(std::ostream& out, const Mix& mix) {
  out << "\nRead Ratio : " << mix.read << " Write Ratio: " << mix.write << '\n';
  WriteStores(out, mix);
}

void WriteInterval(std::ostream& out, int number, double bandwidth) {
  out << '#' << number << ": " << bandwidth << " MB/s\n";
}

void WriteBandwidth(std::ostream& out, const BandwidthResult& result) {
  out << "Avg. BW: " << result.average << " MB/s\n"
      << "Max. BW: " << result.maximum << " MB/s\n"
      << "Min. BW: " << result.minimum << " MB/s\n";
}

void WriteThread(std::ostream& out, int cpu, double bandwidth) {
  out << "Thread " << std::setw(2) << cpu << " BW: " << bandwidth << " MB/s\n";
}

std::string mix_name(const Mix& mix) {
  std::string name;
  if (mix.read != 0) name += std::to_string(mix.read) + "r";
  if (mix.write != 0) name += std::to_string(mix.write) + (mix.stream != 0 ? "wn" : "w");
  return name;
}

void LogBandwidth(const LoadSetup& setup, const Mix& mix, const BandwidthResult& result) {
  const Configurator& config = setup.config;
  const std::string name = config.output.empty()
                               ? "mem" + std::to_string(setup.target) + "_BW_result_"
                               : config.output + "_";
  LogFile log(name + mix_name(mix) + "_" + time_stamp() + ".txt");
  log << std::fixed << std::setprecision(2) << "Bandwidth\n";
  if (config.full) log << "Using Full Instruction\n";
  WriteRegion(log, setup);
  log << "chunk size : " << config.chunk * 8 << " Byte\n";
  WriteCpusAndMemory(log, setup);
  WriteThreads(log, setup);
  log << "\nRead Ratio: " << mix.read << " Write Ratio: " << mix.write << '\n';
  WriteStores(log, mix);
  log << '\n';
  for (size_t i = 0; i < result.seconds.size(); ++i) {
    WriteInterval(log, static_cast<int>(i) + 1, result.seconds[i]);
  }
  WriteBandwidth(log, result);
}

}  // namespace velmo
