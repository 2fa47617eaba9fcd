// A team of load workers behind one start gate.

#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "bandwidth/load_worker.h"

namespace velmo {

class LoadTeam {
 public:
  // One worker for each entry of `cpus`, on the buffer of the same index in `bufs`: 2 * `region`
  // bytes, not owned. With `analyzer` the workers run use_pa passes, and before them one line a
  // stride carries their CPU number.
  LoadTeam(const Configurator& config, std::vector<int> cpus, const std::vector<void*>& bufs,
           int64_t region, bool analyzer);
  ~LoadTeam();
  LoadTeam(const LoadTeam&) = delete;
  LoadTeam& operator=(const LoadTeam&) = delete;

  // Starts the threads, each pinned to its CPU, and waits until all are parked at the gate.
  void Park();

  // Lets all of them pass, also one that counted itself and had not yet begun to wait.
  void OpenGate();

  size_t size() const { return workers_.size(); }
  int cpu(size_t i) const { return cpus_[i]; }

  // Bytes per second that worker `i` moved since its last sample. The first sample of a worker has
  // no time before it and drains the counter only.
  double Sample(size_t i);

  // Stops and joins all workers that run. In the analyzer mode it waits for their passes.
  void Stop();

  // Joins worker `i` of the analyzer mode; its bandwidth in MB/s.
  double Join(size_t i);

 private:
  void WaitUntilParked() const;

  std::vector<int> cpus_;
  std::vector<std::unique_ptr<LoadWorker>> workers_;
  std::vector<std::thread> threads_;
  std::vector<double> last_sample_;  // monotonic clock in s
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond_ = PTHREAD_COND_INITIALIZER;
  std::atomic<int> waiting_{0};
  bool opened_ = false;
};

}  // namespace velmo
