// LoadWorker generates memory load on one thread and counts the bytes that it moves.
//
// Construct, SetMem, run Start on a thread of its own, open the gate, sample bytes_, store true
// into stop_, join.

#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "bandwidth/load_kernels.h"
#include "config/configurator.h"

namespace velmo {

// A read/write mix: shares of the line transfers, and whether stores are non-temporal.
struct Mix {
  int32_t read;
  int32_t write;
  int32_t stream;
};

// What a mix means for a worker. A pass is a fixed number of blocks (of a kernel) or units (of the
// generic loop), after which the worker updates its count.
inline constexpr int32_t kBlocksPerPass = 1024;

struct LoadPlan {
  // `full`: ordinary accesses to whole lines; non-temporal mixes always move whole lines. An
  // ordinary store reads its line first, which counts as a read: of R reads for W writes, R - W are
  // explicit.
  LoadPlan(const Mix& mix, bool full, int32_t blocks_per_pass);

  KernelShape shape;    // read_lines: explicit reads for a unit of work
  int64_t write_lines;  // writes for a unit of work
  Kernel kernel;        // null: the generic loop
  int64_t pass_bytes;   // memory traffic of a pass
  int64_t read_step;    // bytes that a pass advances in the read and in the write region
  int64_t write_step;
};

// Workers lie on boundaries of their own, so that the counter of one shares no cache line, nor a
// pair of lines that are fetched together, with anything of another.
class alignas(1024) LoadWorker {
 public:
  explicit LoadWorker(Configurator config);
  virtual ~LoadWorker() = default;
  LoadWorker(const LoadWorker&) = delete;
  LoadWorker& operator=(const LoadWorker&) = delete;

  // Takes the regions: `size` bytes at `buf` to read and `size` bytes behind them to write, not
  // owned; each must hold a pass. One line a stride of both is evicted from the caches. With `fill`
  // other than -1, first its low byte is stored at every stride, and Start works in the
  // protocol-analyzer mode.
  void SetMem(void* buf, long size, long fill);

  // Counts itself in `waiting`, waits on `cond` once, and moves memory: until stop_ is true, adding
  // every pass to bytes_, or in the protocol-analyzer mode for use_pa passes, leaving bandwidth_.
  // The driver broadcasts once all workers have counted themselves, and until `waiting` is 0 again.
  void Start(pthread_mutex_t& mutex, pthread_cond_t& cond, std::atomic<int>& waiting);

  std::atomic<uint64_t> bytes_{0};  // moved since the driver last took the value
  std::atomic<bool> stop_{false};   // tested before every pass
  double bandwidth_ = 0;            // of the protocol-analyzer mode, in MB/s

  Configurator config_;
  void* read_base_ = nullptr;
  void* write_base_ = nullptr;
  int64_t fill_ = -1;
  int64_t region_size_ = 0;  // bytes of each region
  int32_t blocks_per_pass_ = kBlocksPerPass;
  int32_t lines_per_block_ = kBlockLines;
};

}  // namespace velmo
