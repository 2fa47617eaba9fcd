#include "bandwidth/bandwidth.h"

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>

#include "app/console.h"
#include "app/log_file.h"
#include "app/progress.h"
#include "app/system.h"
#include "mem/report.h"

namespace velmo {
namespace {

// Busy-waits: the main thread's CPU stays awake and the second is exact. A system clock that is set
// meanwhile shortens it, or makes it two; the samples have a clock of their own.
void wait_one_second() {
  using Clock = std::chrono::system_clock;
  Clock::time_point start = Clock::now();
  for (Clock::time_point now = start; now - start < std::chrono::seconds(1); now = Clock::now()) {
    start = std::min(start, now);
  }
}

}  // namespace

Bandwidth::Bandwidth(Configurator config) : LoadBench(std::move(config)) {}

void Bandwidth::Run() {
  std::cout << (config_.bandwidth_local == 1 ? "Measure Local Memory Bandwidth\n"
                                             : "Measure Memory Bandwidth\n");
  const auto targets = static_cast<uint32_t>(config_.num_targets);
  for (node_idx_ = 0; node_idx_ < targets; ++node_idx_) MeasureTarget();
}

std::vector<Mix> Bandwidth::Workloads() const {
  if (config_.basic_workload) return {basic_workloads_.begin(), basic_workloads_.end()};
  return {{config_.read, config_.write, config_.stream ? 1 : 0}};
}

void Bandwidth::MeasureTarget() {
  std::cout << kSeparator << "Memory #" << node_idx_ << " Result\n";
  const std::vector<Mix> workloads = Workloads();
  const int64_t free = UpdateFreeMem();
  ChooseLoadCpus(nullptr);
  SizeBuffers(workloads, free, 0);
  if (config_.node_spinners) StartLoadSpinners();
  {
    const Progress progress = ShowZeroing(2 * buf_size_ * (thread_num_ - 1));
    AllocBuffers(0);
  }
  PrintSetup();
  std::cout << "(Sequential)\n";
  for (const Mix& mix : workloads) {
    config_.read = mix.read;
    config_.write = mix.write;
    config_.stream = mix.stream != 0;
    Measure();
  }
  StopSpinners();
  ReleaseBuffers();
}

void Bandwidth::PrintSetup() const {
  WriteLoadLines(std::cout);
  std::cout << "memory size: " << static_cast<double>(buf_size_) / kBytesPerMiB << " MiB/thread\n"
            << "the number of BW threads: " << thread_num_ - 1 << '\n';
}

// The threads' nodes and CPUs and the memory target.
void Bandwidth::WriteLoadLines(std::ostream& out) const {
  out << "cpu-numa_id: " << bw_numa_str_ << '\n'
      << "BW threads cpu_id: " << bw_cpus_str_ << '\n'
      << "main thread cpu_id: " << bw_cpus_.front() << '\n';
  write_memory_line(out, config_, static_cast<int>(node_idx_), "base addr  : 0x");
  out << '\n';
}

void Bandwidth::Measure() {
  std::cout << "\nRead Ratio : " << config_.read << " Write Ratio: " << config_.write << '\n';
  if (config_.stream) std::cout << "Using non-temporal write\n";

  std::optional<Progress> progress;
  progress.emplace(Phase{.label = "Preparing the load"});
  LoadTeam team(config_, LoadCpus(), LoadBuffers(), buf_size_, config_.use_pa_set);
  team.Park();
  progress.emplace(Phase{.label = "Measuring bandwidth",
                         .left = config_.use_pa_set ? 0.0 : config_.iter,
                         .measuring = LoadCpus()});
  if (config_.use_pa_set) {
    RunAnalyzer(team);
  } else {
    team.OpenGate();
    SampleIterations(team);
    team.Stop();
    check_still_pinned(bw_cpus_.front());
    WriteSummary(std::cout);
    if (config_.verbose >= 1) WriteLog();
  }
  std::cout << kSeparator;
}

void Bandwidth::SampleIterations(LoadTeam& team) {
  constexpr int kReserved = 1 << 16;  // "-i 2147483643" means "until I end it", not 16 GiB
  iter_bw_.clear();
  iter_bw_.reserve(std::min(config_.iter, kReserved));
  for (int i = 0; i < config_.iter; ++i) {
    wait_one_second();
    double sum = 0;
    for (size_t t = 0; t < team.size(); ++t) sum += team.Sample(t);
    iter_bw_.push_back(i < kBandwidthWarmUp ? sum : sum * 1e-6);
    if (i < kBandwidthWarmUp) continue;
    std::cout << '#' << i - kBandwidthWarmUp + 1 << ": " << iter_bw_.back() << " MB/s\n";
  }
}

void Bandwidth::RunAnalyzer(LoadTeam& team) const {
  Info() << "BW thread setting is complete. Start Protocol Analyzer.\n\n";
  std::this_thread::sleep_for(std::chrono::seconds(10));
  team.OpenGate();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  double sum = 0;
  for (size_t t = 0; t < team.size(); ++t) {
    const double bandwidth = team.Join(t);
    std::cout << "Thread " << std::setw(2) << team.cpu(t) << " BW: " << bandwidth << " MB/s\n";
    sum += bandwidth;
  }
  std::cout << "\nSum of BW: " << sum << " MB/s\n";
}

void Bandwidth::WriteSummary(std::ostream& out) const {
  const auto counted = std::span(iter_bw_).subspan(kBandwidthWarmUp);
  const double total = std::accumulate(counted.begin(), counted.end(), 0.0);
  const auto [lowest, highest] = std::minmax_element(counted.begin(), counted.end());
  out << "Avg. BW: " << total / static_cast<double>(counted.size()) << " MB/s\n"
      << "Max. BW: " << *highest << " MB/s\n"
      << "Min. BW: " << *lowest << " MB/s\n";
}

void Bandwidth::WriteLog() const {
  std::string name = config_.output.empty() ? "mem" + std::to_string(node_idx_) + "_BW_result_"
                                            : config_.output + "_";
  LogFile log(name + MixName() + "_" + time_stamp() + ".txt");
  log << std::fixed << std::setprecision(2) << "Bandwidth\n";
  if (config_.full) log << "Using Full Instruction\n";
  log << "memory size: " << static_cast<double>(buf_size_) / kBytesPerMiB << " MiB/thread\n"
      << "chunk size : " << config_.chunk * 8 << " Byte\n";
  WriteLoadLines(log);
  log << "the number of BW threads: " << thread_num_ - 1 << "\n\n"
      << "Read Ratio: " << config_.read << " Write Ratio: " << config_.write << '\n';
  if (config_.stream) log << "Using non-temporal write\n";
  log << '\n';
  for (size_t i = kBandwidthWarmUp; i < iter_bw_.size(); ++i) {
    log << '#' << i - kBandwidthWarmUp + 1 << ": " << iter_bw_[i] << " MB/s\n";
  }
  WriteSummary(log);
}

}  // namespace velmo
