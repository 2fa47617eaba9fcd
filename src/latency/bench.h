// Bench is the base of the benchmarks: the configuration of the run, the memory under test, the CPU
// next to it, and the threads that keep the machine awake while a benchmark measures.

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/progress.h"
#include "app/spinners.h"
#include "config/configurator.h"
#include "latency/measure_latency.h"
#include "mem/buffer.h"
#include "platform/caches.h"
#include "platform/disturbances.h"

namespace velmo {

inline constexpr int64_t kBufferGrain = int64_t{2} << 20;    // buffer sizes are multiples of this
inline constexpr int64_t kDefaultBuffer = int64_t{2} << 30;  // where neither user nor memory says

class Bench {
 public:
  explicit Bench(Configurator config);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Measures every memory target of the configuration.
  virtual void Run() = 0;

  // The memory target under test.
  MemoryTarget Target() const;

  // A buffer of the current target, first touched on `cpu` (-1: the calling thread's). `offset`
  // counts for a physical range only. A failure ends the program (mem/mapping.h).
  Buffer AllocMem(int64_t size, int cpu, int64_t offset);

  // Shows the wait for AllocMem to zero `bytes`, by any number of threads.
  Progress ShowZeroing(int64_t bytes);

  // Bytes of the current target that a run may use: free_ratio_ of what is free on its node or file
  // system, 4 GiB for memory without a node, 0 for devices. exit(1) when the file system cannot be
  // asked.
  long GetFreeMemSize() const;

  // Sets free_mem_: what GetFreeMemSize says, in multiples of kBufferGrain, kDefaultBuffer in place
  // of 0; of a device-DAX target no more than it holds. Returns what GetFreeMemSize says. For
  // memory without a node both are at most free_ratio_ of the machine's.
  long UpdateFreeMem();

  // The CPU to measure the current target from: of its CPU node, not CPU 0 nor a hyper-thread
  // sibling of it where the node has another. An unknown CPU node is found by measuring the latency
  // from every node (printing that it does so), and kept in cpunode_list. exit(1) when no node has
  // a CPU.
  NumaInfo::cpu_ctx GetCPUNode();

  // Keeps `cpu` busy until StopSpinners, or any CPU when it is null.
  void StartSpinner(const NumaInfo::cpu_ctx* cpu);
  void StopSpinners();

  Disturbances disturbances_;  // of the measurements so far, where somebody reads of them
  Configurator config_;
  std::optional<Spinners> spinners_;
  uint32_t node_idx_ = 0;    // memory target under test
  int64_t free_mem_ = 0;     // usable bytes of the target
  double free_ratio_ = 0.8;  // share of the free memory that is usable
  Caches caches_;            // read where they are asked for

 protected:
  ~Bench() = default;

  // Watches measurements into disturbances_, where somebody reads of them. `busy` CPUs work for the
  // benchmark besides the spinning ones.
  StretchObserver WatchStretch(std::vector<int> busy);

  // Stride, chunk and delay of the configuration, measured from `cpu`.
  LatencySpec ChaseSpec(const NumaInfo::cpu_ctx& cpu) const;

  // Says which chain may be measured in `size` bytes with the prefetchers `off` or not: where they
  // stay on, with a message, only a random one, for which the stride is raised to 256 bytes.
  // exit(1) when the buffer does not hold one stride.
  void ChoosePattern(bool off, int64_t size, LatencySpec& spec) const;

  // Warns where the `bytes` of memory that `who` touches on `cpus` are less than four times the
  // last-level caches there: much of what is measured would be the caches. `advice` says what
  // helps.
  void WarnIfCached(const std::string& who, int64_t bytes, std::vector<int> cpus,
                    const std::string& advice = "Increase the size with -m");

  // Warns where `size` is less than was `wanted` of `what`, in bytes.
  static void WarnIfLowered(const std::string& what, int64_t wanted, int64_t size);

  // exit(1) when `size` bytes do not hold one `stride`.
  static void CheckHoldsStride(int64_t size, int32_t stride);

 private:
  int FindNearestCpuNode();

  std::vector<int> spinning_cpus_;
  std::atomic<int64_t> zeroed_{0};  // bytes since the last ShowZeroing
};

}  // namespace velmo
