// LoadWorker generates memory load on one thread and counts the bytes that it moves.
//
// Construct, SetMem, run Start on a thread of its own, open the gate, sample bytes_, store true
// into stop_, join.

#pragma once

#include <atomic>
#include <cstdint>

#include "app/gate.h"
#include "bandwidth/load_plan.h"

namespace velmo {

// Workers lie on boundaries of their own, so that the counter of one shares no cache line, nor a
// pair of lines that are fetched together, with anything of another.
class alignas(1024) LoadWorker {
 public:
  explicit LoadWorker(const LoadSpec& spec);
  LoadWorker(const LoadWorker&) = delete;
  LoadWorker& operator=(const LoadWorker&) = delete;

  // Takes the regions: `size` bytes at `buf` to read and `size` bytes behind them to write, not
  // owned; each must hold a pass. One line a stride of both is evicted from the caches. With `fill`
  // other than -1, first its low byte is stored at every stride.
  void SetMem(void* buf, long size, long fill);

  // Waits at the gate and moves memory: until stop_ is true, adding every pass to bytes_, or for
  // as many passes as it was made for, leaving bandwidth_.
  void Start(Gate& gate);

  std::atomic<uint64_t> bytes_{0};  // moved since the driver last took the value
  std::atomic<bool> stop_{false};   // tested before every pass
  double bandwidth_ = 0;            // over a fixed number of passes, in MB/s

  LoadSpec spec_;
  void* read_base_ = nullptr;
  void* write_base_ = nullptr;
  int64_t region_size_ = 0;  // bytes of each region
  int32_t blocks_per_pass_ = kBlocksPerPass;
};

}  // namespace velmo
