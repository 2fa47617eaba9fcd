// Bench is the base of the benchmarks: the configuration of the run, the memory under test, the CPU
// next to it, and the threads that keep the machine awake while a benchmark measures.

#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "app/progress.h"
#include "config/configurator.h"

namespace velmo {

inline constexpr int64_t kBufferGrain = int64_t{2} << 20;    // buffer sizes are multiples of this
inline constexpr int64_t kDefaultBuffer = int64_t{2} << 30;  // where neither user nor memory says

// Bytes of memory that the machine has.
int64_t machine_memory();

class Bench {
 public:
  explicit Bench(Configurator config);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Measures every memory target of the configuration.
  virtual void Run() = 0;

  // Maps `size` bytes of the current target's memory and zeroes them, which faults every page in.
  // `offset` counts for a physical range only. A failure ends the program (mem/mapping.h).
  void AllocMem(void*& buf, long size, long offset);

  // Shows the wait for AllocMem to zero `bytes`, by any number of threads.
  Progress ShowZeroing(int64_t bytes);

  // Releases what AllocMem mapped; a null `buf` is ignored.
  void ReleaseMem(void*& buf, long size) const;

  // Bytes of the current target that a run may use: free_ratio_ of what is free on its node or file
  // system, 4 GiB for memory without a node, 0 for devices. exit(1) when the file system cannot be
  // asked.
  long GetFreeMemSize();

  // Sets free_mem_: what GetFreeMemSize says, in multiples of kBufferGrain, kDefaultBuffer in place
  // of 0; of a device-DAX target no more than it holds. Returns what GetFreeMemSize says. For
  // memory without a node both are at most free_ratio_ of the machine's.
  long UpdateFreeMem();

  // The CPU to measure the current target from: of its CPU node, not CPU 0 nor a hyper-thread
  // sibling of it where the node has another. An unknown CPU node is found by measuring the latency
  // from every node (printing that it does so), and kept in cpunode_list. exit(1) when no node has
  // a CPU.
  NumaInfo::cpu_ctx GetCPUNode();

  // Keeps its CPU busy until spin_flag_ is false.
  static void Spin();

  // Starts a thread that spins until StopSpinners, pinned to `cpu`, or unpinned when `cpu` is null.
  // It has the kernel's idle priority: it keeps its CPU awake, and leaves it to
  // any other thread, a measuring one on a machine with one core included.
  void StartSpinner(const NumaInfo::cpu_ctx* cpu);

  // Ends and joins the threads of StartSpinner.
  void StopSpinners();

  static std::atomic<bool> spin_flag_;  // false ends Spin

  Configurator config_;
  std::vector<std::thread> threads_;  // spinning threads
  uint32_t node_idx_ = 0;             // memory target under test
  int64_t free_mem_ = 0;              // usable bytes of the target
  double free_ratio_ = 0.8;           // share of the free memory that is usable

 protected:
  ~Bench() { StopSpinners(); }

 private:
  int FindNearestCpuNode();

  std::atomic<int64_t> zeroed_{0};  // bytes since the last ShowZeroing
};

// A buffer of the current target, released with its owner.
class TargetBuffer {
 public:
  TargetBuffer(Bench& bench, long size, long offset) : bench_(bench), size_(size) {
    const Progress progress = bench_.ShowZeroing(size_);
    bench_.AllocMem(buf_, size_, offset);
  }
  ~TargetBuffer() { bench_.ReleaseMem(buf_, size_); }
  TargetBuffer(const TargetBuffer&) = delete;
  TargetBuffer& operator=(const TargetBuffer&) = delete;
  void* get() const { return buf_; }

 private:
  Bench& bench_;
  void* buf_ = nullptr;
  long size_;
};

}  // namespace velmo
