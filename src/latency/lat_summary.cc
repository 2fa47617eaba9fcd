// What a latency measurement reports: percentiles, console lines and the log file.

#include <algorithm>

#include "app/console.h"
#include "app/log_file.h"
#include "latency/lat_worker.h"
#include "mem/report.h"

namespace velmo {
namespace {

// The log's histogram tells apart the nanoseconds below this; longer samples share its last line.
constexpr long kMaxHistogramNs = 500'000;
constexpr double kMaxOverheadNs = 100.0;

double cycles_to_ns(uint64_t cycles, double freq) {
  return static_cast<double>(cycles) * 1e9 / freq;
}

}  // namespace

// Samples by count and by length in ns.
struct LatWorker::Distribution {
  uint64_t count;
  double mean;   // of the samples as they were timed
  double shift;  // what takes a timed sample to the latency in it: less the cost of timing
};

LatWorker::Distribution LatWorker::Distribute() const {
  Distribution samples{0, 0.0, 0.0};
  double total = 0.0;
  for (size_t c = 0; c < hist_.size(); ++c) {
    if (hist_[c] == 0) continue;
    samples.count += hist_[c];
    total += static_cast<double>(hist_[c]) * cycles_to_ns(c, config_.tsc_freq);
  }
  samples.mean = samples.count > 0 ? total / static_cast<double>(samples.count) : base_avg_;
  samples.shift = base_avg_ - samples.mean;
  return samples;
}

void LatWorker::SetPercentiles(const Distribution& samples) {
  const auto count = static_cast<double>(samples.count);
  struct Percentile {
    uint32_t& value;
    uint64_t threshold;
  };
  const Percentile percentiles[] = {
      {p0_1_, static_cast<uint64_t>(count * 0.001)},
      {p1_, static_cast<uint64_t>(count * 0.01)},
      {median_, samples.count / 2},
      {p99_, static_cast<uint64_t>(count * 0.99)},
      {p99_9_, static_cast<uint64_t>(count * 0.999)},
  };
  uint32_t running = 0;
  for (size_t c = 0; c < hist_.size(); ++c) {
    running += static_cast<uint32_t>(hist_[c]);
    for (const Percentile& p : percentiles) {
      // A bin below 1 ns leaves the value at 0, so the next bin above the threshold gives it.
      if (p.value == 0 && running > p.threshold) {
        p.value = static_cast<uint32_t>(cycles_to_ns(c, config_.tsc_freq));
      }
    }
  }
  for (uint32_t* value : {&median_, &p99_, &p99_9_}) {
    // Below 0 when a few long samples raise the mean above the value; the values are unsigned.
    *value = static_cast<uint32_t>(std::max(*value + samples.shift, 0.0));
  }
}

void LatWorker::Summary() {
  const Distribution samples = Distribute();
  avg_ = base_avg_;
  overhead_ = samples.mean - base_avg_;
  if (verbose_ == 2) PrintDebug(samples.mean);
  SetPercentiles(samples);
  if (verbose_ < 0) return;
  std::cout << '\n';
  PrintResults(std::cout, samples.count);
  if (verbose_ < 1) return;
  WriteLog(samples);
}

void LatWorker::PrintDebug(double mean) const {
  const double overhead = mean - base_avg_ - delay_ns_;
  Debug() << "QoS Average (latency + overhead): " << mean - delay_ns_ << '\n';
  Debug() << "none-Qos Average (latency)      : " << base_avg_ << '\n';
  Debug() << "overhead: " << overhead << '\n';
  if (overhead > kMaxOverheadNs) {
    std::cerr << kDebugPrefix << kWarningPrefix
              << "Result has a lot of noise. QoS results are not accurate\n";
  }
}

void LatWorker::PrintResults(std::ostream& out, uint64_t samples) const {
  out << "Sample: " << samples << '\n';
  out.precision(2);
  out << "Avg.  : " << avg_ << " ns\n";
  out.precision(0);
  out << "Median: " << median_ << " ns\n"
      << "99th  : " << p99_ << " ns\n"
      << "99.9th: " << p99_9_ << " ns\n";
  out.precision(2);
}

void LatWorker::WriteLog(const Distribution& samples) {
  if (!config_.output.empty()) log_name_ = config_.output;
  if (config_.bw_delay != -1) log_name_ += "delay" + std::to_string(config_.bw_delay) + "_";
  log_name_ += time_stamp() + ".txt";
  LogFile log(log_name_);

  log << title_ << (access_ == kRandom ? " (Random)\n\n" : " (Sequential)\n\n");
  if (config_.bw_delay != -1) log << "delay      : " << config_.bw_delay << '\n';
  write_size_lines(log, config_, config_.stride);
  log << "cpu-numa_id: " << config_.latency_cpu.numa_id << '\n'
      << "cpu-id     : " << config_.latency_cpu.cpu_id << '\n';
  write_memory_line(log, config_, node_idx_, "latency base addr  : 0x");
  log << "\n\n" << std::fixed;
  PrintResults(log, samples.count);
  if (verbose_ < 2) return;
  WriteDebugSection(log, samples.mean);
  WriteHistogram(log, samples.shift);
}

void LatWorker::WriteDebugSection(std::ostream& log, double mean) const {
  log << std::string(63, '=') << '\n'
      << "\nDebug Logs\n"
      << "System Information\n"
      << "    clock overhead: " << config_.clock_overhead << " ns\n";
  log.precision(0);
  log << "    cpu frequency : " << config_.tsc_freq * 1e-6 << " MHz\n";
  log.precision(2);
  log << "Latency Information\n"
      << "    QoS Avg. (latency + overhead): " << mean - delay_ns_ << " ns\n"
      << "    none-QoS Avg. (latency)      : " << base_avg_ << " ns\n"
      << "    overhead: " << mean - base_avg_ - delay_ns_ << " ns\n";
  if (delay_ns_ != 0) {
    log << "Delayed Latency Information\n"
        << "    input delay: " << config_.delay << " ns\n"
        << "    real delay : " << delay_ns_ << " ns\n";
  }
  log << '\n';
}

void LatWorker::WriteHistogram(std::ostream& log, double shift) const {
  std::vector<int64_t> bins(kMaxHistogramNs + 1);
  long top = 0;
  for (size_t c = 0; c < hist_.size(); ++c) {
    if (hist_[c] == 0) continue;
    const auto ns = static_cast<long>(cycles_to_ns(c, config_.tsc_freq) + shift);
    top = std::clamp(ns, 0L, kMaxHistogramNs);
    bins[top] += hist_[c];
  }
  log << "\nLatency Histogram [ns]\n"
      << "< 0: " << bins[0] << '\n';
  for (long k = 1; k < top; ++k) log << k << ": " << bins[k] << '\n';
  log << (top == kMaxHistogramNs ? ">= " : "") << top << ": " << bins[top] << '\n';
}

}  // namespace velmo
