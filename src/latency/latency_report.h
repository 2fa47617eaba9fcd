// A latency measurement on the console and in its log file.

#pragma once

#include <ostream>

#include "config/configurator.h"
#include "latency/measure_latency.h"
#include "latency/summarize.h"

namespace velmo {

// A measurement and what was measured.
struct LatencyReport {
  const Configurator& config;
  uint32_t target = 0;      // number of the memory target
  NumaInfo::cpu_ctx cpu;    // that measured
  int64_t size = 0;         // of the buffer, in bytes
  const LatencySpec& spec;  // its delay: of a delayed measurement
  bool delayed = false;
  const LatencySamples& samples;
  const LatencyResult& result;
};

// Says on the console what begins: "Start Burst Latency (Random)".
void AnnounceLatency(access_type_t pattern, bool delayed);

// The console lines of a result.
void WriteLatency(std::ostream& out, const LatencyResult& result);

// Prints the result and, where the configuration's verbosity is 1 and more, writes the log; at 2
// both tell more.
void ReportLatency(const LatencyReport& report);

}  // namespace velmo
