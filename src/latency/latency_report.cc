#include "latency/latency_report.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/log_file.h"
#include "config/memory_report.h"

namespace velmo {
namespace {

// The log's histogram tells apart the nanoseconds below this; longer samples share its last line.
constexpr long kMaxHistogramNs = 500'000;
constexpr double kMaxOverheadNs = 100.0;

// Names of a measurement in its announcement and in its log.
struct Mode {
  const char* log_part;
  const char* title;
};

constexpr Mode kBurst = {"burst-lat_", "Burst Latency"};
constexpr Mode kDelayed = {"delayed-lat_", "Delayed Latency"};

const char* pattern_text(access_type_t pattern) {
  return pattern == kRandom ? "(Random)" : "(Sequential)";
}

// What the samples hold besides the latency: figures of verbosity 2.
struct DebugFigures {
  explicit DebugFigures(const LatencyReport& r)
      : delay(r.delayed ? static_cast<int>(r.samples.real_delay) : 0),
        qos(r.result.average + r.result.overhead - delay),
        overhead(r.result.overhead - delay) {}

  int delay;        // ns
  double qos;       // mean of the samples without the delay
  double overhead;  // cost of timing without the delay
};

void PrintDebug(const LatencyReport& r) {
  const DebugFigures figures(r);
  Debug() << "start warm-up (look up all address)\n";
  if (r.delayed) {
    Debug() << "measure delay [ns]\n";
    Debug() << "input delay: " << r.spec.delay_ns << '\n';
    Debug() << "real delay : " << r.samples.real_delay << '\n';
    Debug() << "start normal latency\n";
  }
  Debug() << "none QoS dt: " << r.samples.plain_ns << '\n';
  Debug() << "none QoS latency: " << r.samples.average << '\n';
  Debug() << "start QoS latency\n";
  Debug() << "QoS dt: " << r.samples.sampled_ns << '\n';
  Debug() << "QoS Average (latency + overhead): " << figures.qos << '\n';
  Debug() << "none-Qos Average (latency)      : " << r.result.average << '\n';
  Debug() << "overhead: " << figures.overhead << '\n';
  if (figures.overhead > kMaxOverheadNs) {
    std::cerr << kDebugPrefix << kWarningPrefix
              << "Result has a lot of noise. QoS results are not accurate\n";
  }
}

void WriteDebugSection(std::ostream& log, const LatencyReport& r) {
  const DebugFigures figures(r);
  log << std::string(63, '=') << '\n'
      << "\nDebug Logs\n"
      << "System Information\n"
      << "    clock overhead: " << r.config.clock_overhead << " ns\n";
  log.precision(0);
  log << "    cpu frequency : " << r.config.tsc_freq * 1e-6 << " MHz\n";
  log.precision(2);
  log << "Latency Information\n"
      << "    QoS Avg. (latency + overhead): " << figures.qos << " ns\n"
      << "    none-QoS Avg. (latency)      : " << r.result.average << " ns\n"
      << "    overhead: " << figures.overhead << " ns\n";
  if (figures.delay != 0) {
    log << "Delayed Latency Information\n"
        << "    input delay: " << r.spec.delay_ns << " ns\n"
        << "    real delay : " << figures.delay << " ns\n";
  }
  log << '\n';
}

void WriteHistogram(std::ostream& log, const LatencyReport& r) {
  std::vector<int64_t> bins(kMaxHistogramNs + 1);
  long top = 0;
  for (size_t c = 0; c < r.samples.histogram.size(); ++c) {
    const int64_t count = r.samples.histogram[c];
    if (count == 0) continue;
    const auto ns = static_cast<long>(cycles_to_ns(static_cast<double>(c), r.config.tsc_freq) -
                                      r.result.overhead);
    top = std::clamp(ns, 0L, kMaxHistogramNs);
    bins[top] += count;
  }
  log << "\nLatency Histogram [ns]\n"
      << "< 0: " << bins[0] << '\n';
  for (long k = 1; k < top; ++k) log << k << ": " << bins[k] << '\n';
  log << (top == kMaxHistogramNs ? ">= " : "") << top << ": " << bins[top] << '\n';
}

std::string log_name(const LatencyReport& r, const Mode& mode) {
  std::string name = r.config.output;
  if (name.empty()) {
    name = "mem" + std::to_string(r.target) + (r.spec.pattern == kRandom ? "_rnd_" : "_seq_") +
           mode.log_part;
  }
  if (r.config.bw_delay != -1) name += "delay" + std::to_string(r.config.bw_delay) + "_";
  return name + time_stamp() + ".txt";
}

void WriteLog(const LatencyReport& r) {
  const Mode& mode = r.delayed ? kDelayed : kBurst;
  LogFile log(log_name(r, mode));
  log << mode.title << ' ' << pattern_text(r.spec.pattern) << "\n\n";
  if (r.config.bw_delay != -1) log << "delay      : " << r.config.bw_delay << '\n';
  write_size_lines(log, r.config, r.size, r.spec.stride);
  log << "cpu-numa_id: " << r.cpu.numa_id << '\n' << "cpu-id     : " << r.cpu.cpu_id << '\n';
  write_memory_line(log, r.config, static_cast<int>(r.target), "latency base addr  : 0x");
  log << "\n\n" << std::fixed;
  WriteLatency(log, r.result);
  if (r.config.verbose < 2) return;
  WriteDebugSection(log, r);
  WriteHistogram(log, r);
}

}  // namespace

void AnnounceLatency(access_type_t pattern, bool delayed) {
  std::cout << "\nStart " << (delayed ? kDelayed : kBurst).title;
  if (!delayed) std::cout << ' ' << pattern_text(pattern);
  std::cout << '\n';
}

void WriteLatency(std::ostream& out, const LatencyResult& result) {
  out << "Sample: " << result.samples << '\n';
  out.precision(2);
  out << "Avg.  : " << result.average << " ns\n";
  out.precision(0);
  out << "Median: " << result.median << " ns\n"
      << "99th  : " << result.p99 << " ns\n"
      << "99.9th: " << result.p99_9 << " ns\n";
  out.precision(2);
}

void ReportLatency(const LatencyReport& report) {
  if (report.config.verbose == 2) PrintDebug(report);
  std::cout << '\n';
  WriteLatency(std::cout, report.result);
  if (report.config.verbose >= 1) WriteLog(report);
}

}  // namespace velmo
