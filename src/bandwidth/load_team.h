// A team of load workers behind one start gate.

#pragma once

#include <thread>
#include <vector>

#include "app/gate.h"
#include "bandwidth/load_worker.h"
#include "mem/buffer.h"
#include "platform/stretch.h"

namespace velmo {

// The two regions of a load worker: `region` bytes to read and as many behind them to write. Not
// owned.
struct LoadRegions {
  void* data;
  int64_t region;
};

class LoadTeam {
 public:
  // One worker for each entry of `cpus`, on the regions of the same index. Workers that make a
  // fixed number of passes store their CPU number in one line a stride first.
  LoadTeam(const LoadSpec& spec, std::vector<int> cpus, const std::vector<LoadRegions>& regions);
  ~LoadTeam();
  LoadTeam(const LoadTeam&) = delete;
  LoadTeam& operator=(const LoadTeam&) = delete;

  // Starts the threads, each pinned to its CPU, and waits until all are parked at the gate.
  void Park();

  // Lets all of them pass.
  void OpenGate() { gate_.Open(); }

  size_t size() const { return workers_.size(); }
  int cpu(size_t i) const { return cpus_[i]; }

  // The load threads; once they are parked.
  std::vector<WatchedThread> threads() const;

  // Bytes per second that worker `i` moved since its last sample. The first sample of a worker has
  // no time before it and drains the counter only.
  double Sample(size_t i);

  // Stops and joins all workers that run; those of a fixed number of passes end with them.
  void Stop();

  // Joins worker `i`, which makes a fixed number of passes; its bandwidth in MB/s.
  double Join(size_t i);

 private:
  std::vector<int> cpus_;
  // Pages of their own, first touched on the CPU that runs the worker: its counter is near.
  std::vector<Buffer> seats_;
  std::vector<LoadWorker*> workers_;
  std::vector<std::thread> threads_;
  std::vector<int> tids_;            // of the threads
  std::vector<double> last_sample_;  // monotonic clock in s
  Gate gate_;
};

}  // namespace velmo
