// What the bandwidth and the loaded-latency benchmark have in common: the CPUs that generate load,
// and their buffers.

#pragma once

#include <string>
#include <vector>

#include "bandwidth/bandwidth_report.h"
#include "bandwidth/load_team.h"
#include "latency/bench.h"

namespace velmo {

class LoadBench : public Bench {
 public:
  using Bench::Bench;

  int thread_num_ = 0;        // threads with the main one, which is thread 0
  int64_t buf_size_ = -1;     // bytes of each of a load thread's two regions
  std::vector<Buffer> bufs_;  // one a load thread, 2 * buf_size_ bytes
  std::vector<int> bw_cpus_;  // CPU of each thread, rising
  std::string bw_cpus_str_;   // those of the load threads, as ranges
  std::string bw_numa_str_;   // their nodes, as ranges

 protected:
  ~LoadBench() = default;

  // Chooses the CPUs of the current target's threads: those of -l, else those of its CPU node when
  // the load is bound to one, else all; -j of them. Pins the calling thread to the first. exit(1)
  // when no load thread could run. A CPU that is `reserved` (null: none) for another thread is left
  // out; where one more remains alone, the main thread shares it with the load, after a warning.
  void ChooseLoadCpus(const NumaInfo::cpu_ctx* reserved);

  // One spinning thread on every node without load, up to the last node with load.
  void StartLoadSpinners();

  // Sets buf_size_: the configured size or an equal share of what `free` bytes leave beside the
  // `reserved` ones (no matter for devices), in any case enough for one pass of every mix. exit(1)
  // when that does not fit, or when a configured size is beyond the machine's memory or what its
  // control groups leave.
  void SizeBuffers(const std::vector<Mix>& mixes, int64_t free, int64_t reserved);

  // Warns of what in the load of `mixes` would measure something else than memory under that load:
  // regions that the caches hold, a delay that leaves too few steps of it and, told once a run of
  // `delayed` load, one that comes rarely.
  void WarnOfLoad(const std::vector<Mix>& mixes, bool delayed);

  // Every buffer is mapped and first touched on the CPU that will use it. In a physical range the
  // first lies `first_offset` bytes behind its start, the others behind one another.
  void AllocBuffers(int64_t first_offset);
  void ReleaseBuffers() { bufs_.clear(); }

  // The mix of the configuration, and the load that it means, until it is stopped.
  Mix ConfiguredMix() const;
  LoadSpec Load(const Mix& mix) const;

  // What the console and the logs tell of the load.
  LoadSetup Setup() const;

  // CPUs and regions of the load threads alone.
  std::vector<int> LoadCpus() const { return {bw_cpus_.begin() + 1, bw_cpus_.end()}; }
  std::vector<LoadRegions> Regions() const;

 private:
  std::vector<NumaInfo::cpu_ctx> CandidateCpus();
  static void LeaveOutSiblings(const NumaInfo::cpu_ctx& measuring,
                               std::vector<NumaInfo::cpu_ctx>& cpus);
  void WarnOfDelay(const LoadPlan& plan) const;
  void EnsurePass(const std::vector<Mix>& mixes, int64_t free);

  std::vector<int> load_nodes_;  // of all threads and the reserved CPU, rising
};

}  // namespace velmo
