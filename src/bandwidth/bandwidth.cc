#include "bandwidth/bandwidth.h"

#include <chrono>
#include <iostream>
#include <optional>
#include <thread>
#include <utility>

#include "app/console.h"
#include "app/progress.h"
#include "app/threads.h"
#include "bandwidth/bandwidth_report.h"

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
  WriteLoad(std::cout, Setup());
  for (const Mix& mix : workloads) Measure(mix);
  StopSpinners();
  ReleaseBuffers();
}

void Bandwidth::Measure(const Mix& mix) {
  WriteMix(std::cout, mix);

  std::optional<Progress> progress;
  progress.emplace(Phase{.label = "Preparing the load"});
  LoadSpec load = Load(mix);
  if (config_.use_pa_set) load.passes = config_.use_pa;
  LoadTeam team(load, LoadCpus(), Regions());
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
    if (config_.verbose >= 1) LogBandwidth(Setup(), mix, result);
  }
  std::cout << kSeparator;
}

void Bandwidth::RunAnalyzer(LoadTeam& team) const {
  Info() << "BW thread setting is complete. Start Protocol Analyzer.\n\n";
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const BandwidthResult result = MeasurePasses(
      team, [](int cpu, double bandwidth) { WriteThread(std::cout, cpu, bandwidth); });
  std::cout << "\nSum of BW: " << result.average << " MB/s\n";
}

}  // namespace velmo
