// A bandwidth measurement on the console and in its log file.

#pragma once

#include <ostream>
#include <string>

#include "bandwidth/measure_bandwidth.h"
#include "config/configurator.h"

namespace velmo {

// The load of a memory target.
struct LoadSetup {
  const Configurator& config;
  uint32_t target;    // number of the memory target
  std::string nodes;  // of the load threads' CPUs, as ranges
  std::string cpus;
  int main_cpu;    // of the main thread
  int threads;     // of load
  int64_t region;  // bytes of each of a thread's two
};

// The console lines of a load.
void WriteLoad(std::ostream& out, const LoadSetup& setup);

// The console lines of the mix that is measured next.
void WriteMix(std::ostream& out, const Mix& mix);

// The line of a counted interval.
void WriteInterval(std::ostream& out, int number, double bandwidth);

// The lines of average, maximum and minimum.
void WriteBandwidth(std::ostream& out, const BandwidthResult& result);

// The line of a thread that made a fixed number of passes.
void WriteThread(std::ostream& out, int cpu, double bandwidth);

// The mix as a part of a log name: "2r1w", "1wn".
std::string mix_name(const Mix& mix);

// The log file: set-up, mix, intervals and result.
void LogBandwidth(const LoadSetup& setup, const Mix& mix, const BandwidthResult& result);

}  // namespace velmo
