#include "bandwidth/bandwidth.h"

#include <chrono>
#include <iomanip>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "app/console.h"
#include "app/log_file.h"
#include "app/progress.h"
#include "app/threads.h"
#include "bandwidth/bandwidth_report.h"
#include "mem/memory_report.h"

namespace velmo {
Bandwidth::Bandwidth(Configurator config) : LoadBench(std::move(config)) {}

void Bandwidth::Run() {
  std::cout << (config_.bandwidth_local == 1 ? "Measure Local Memory Bandwidth\n"
                                             : "Measure Memory Bandwidth\n");
  const auto targets = static_cast<uint32_t>(config_.num_targets);
  for (node_idx_ = 0; node_idx_ < targets; ++node_idx_) MeasureTarget();
}

std::vector<Mix> Bandwidth::Workloads() const {
  if (config_.basic_workload) return {basic_workloads_.begin(), basic_workloads_.end()};
  return {ConfiguredMix()};
}

void Bandwidth::MeasureTarget() {
  std::cout << kSeparator << "Memory #" << node_idx_ << " Result\n";
  const std::vector<Mix> workloads = Workloads();
  const int64_t free = UpdateFreeMem();
  ChooseLoadCpus(nullptr);
  SizeBuffers(workloads, free, 0);
  WarnOfLoad(workloads, config_.bw_delay > 0);
  if (config_.node_spinners) StartLoadSpinners();
  {
    const Progress progress = ShowZeroing(2 * buf_size_ * (thread_num_ - 1));
    AllocBuffers(0);
  }
  PrintSetup();
  std::cout << "(Sequential)\n";
  for (const Mix& mix : workloads) Measure(mix);
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

void Bandwidth::Measure(const Mix& mix) {
  std::cout << "\nRead Ratio : " << mix.read << " Write Ratio: " << mix.write << '\n';
  if (mix.stream != 0) std::cout << "Using non-temporal write\n";

  std::optional<Progress> progress;
  progress.emplace(Phase{.label = "Preparing the load"});
  LoadTeam team(Load(mix), LoadCpus(), Regions());
  team.Park();
  progress.emplace(Phase{.label = "Measuring bandwidth",
                         .left = config_.use_pa_set ? 0.0 : config_.iter,
                         .measuring = LoadCpus()});
  if (config_.use_pa_set) {
    RunAnalyzer(team);
  } else {
    const BandwidthResult result = MeasureBandwidth(
        team,
        {.intervals = config_.iter - kBandwidthWarmUp,
         .warm_up = kBandwidthWarmUp,
         .stretch = WatchStretch({bw_cpus_.front()})},
        [](int number, double bandwidth) { WriteInterval(std::cout, number, bandwidth); });
    check_still_pinned(bw_cpus_.front());
    WriteBandwidth(std::cout, result);
    if (config_.verbose >= 1) WriteLog(mix, result);
  }
  std::cout << kSeparator;
}

void Bandwidth::RunAnalyzer(LoadTeam& team) const {
  Info() << "BW thread setting is complete. Start Protocol Analyzer.\n\n";
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const BandwidthResult result = MeasurePasses(team, [](int cpu, double bandwidth) {
    std::cout << "Thread " << std::setw(2) << cpu << " BW: " << bandwidth << " MB/s\n";
  });
  std::cout << "\nSum of BW: " << result.average << " MB/s\n";
}

void Bandwidth::WriteLog(const Mix& mix, const BandwidthResult& result) const {
  std::string name = config_.output.empty() ? "mem" + std::to_string(node_idx_) + "_BW_result_"
                                            : config_.output + "_";
  LogFile log(name + MixName(mix) + "_" + time_stamp() + ".txt");
  log << std::fixed << std::setprecision(2) << "Bandwidth\n";
  if (config_.full) log << "Using Full Instruction\n";
  log << "memory size: " << static_cast<double>(buf_size_) / kBytesPerMiB << " MiB/thread\n"
      << "chunk size : " << config_.chunk * 8 << " Byte\n";
  WriteLoadLines(log);
  log << "the number of BW threads: " << thread_num_ - 1 << "\n\n"
      << "Read Ratio: " << mix.read << " Write Ratio: " << mix.write << '\n';
  if (mix.stream != 0) log << "Using non-temporal write\n";
  log << '\n';
  for (size_t i = 0; i < result.seconds.size(); ++i) {
    WriteInterval(log, static_cast<int>(i) + 1, result.seconds[i]);
  }
  WriteBandwidth(log, result);
}

}  // namespace velmo
