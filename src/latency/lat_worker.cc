#include "latency/lat_worker.h"

#include <algorithm>
#include <utility>

#include "app/console.h"
#include "app/system.h"
#include "latency/chase.h"
#include "mem/chain.h"

namespace velmo {

LatWorker::LatWorker(Configurator config)
    : config_(std::move(config)), laps_(config_.iter), hist_(kMaxCycles + 1) {}

void LatWorker::SetMem(void* buf) { buf_ = buf; }

void LatWorker::InitParameter(access_type_t type, int node_idx, int verbose, bool burst) {
  verbose_ = verbose;
  node_idx_ = node_idx;
  access_ = type;
  log_name_ = verbose > 0 ? "mem" + std::to_string(node_idx) + "_" : "";
  if (type == kSequential) {
    make_seq_chain(buf_, config_.mem_size, config_.stride);
    log_name_ += "seq_";
    pattern_ = "(Sequential)";
  } else {
    make_rnd_chain(buf_, config_.mem_size, config_.stride);
    log_name_ += "rnd_";
    pattern_ = "(Random)";
  }
  std::fill(hist_.begin(), hist_.end(), 0);
  avg_ = base_avg_ = 0;
  p0_1_ = p1_ = median_ = p99_ = p99_9_ = 0;
  delay_ns_ = 0;
  released_ = false;

  elements_ = static_cast<uint64_t>(config_.mem_size / config_.stride);
  loads_ = std::max<uint64_t>(min_loads_, elements_);
  // In 32 bits: 0 - 1 is 2^32 - 1, so that laps_ = 0 is not raised.
  const uint32_t sampled_laps = laps_ - 1;
  if (target_loads_ > static_cast<double>(sampled_laps * elements_)) {
    laps_ = static_cast<uint32_t>(target_loads_ / static_cast<double>(elements_) + 1.0);
  }
  flush_lines(buf_, elements_, config_.stride);
  if (burst) {
    laps_ = 2;
    loads_ /= 16;
    elements_ = loads_;
  }
}

void LatWorker::Simple() {
  if (verbose_ == 2) {
    std::cout << '\n';
    Debug() << "Start Simple Latency\n";
  }
  const long start = monotonic_ns();
  const void* p = Chase(buf_, simple_loads_);
  const long end = monotonic_ns();
  ReadChunk(p, 1);
  avg_ = static_cast<double>(end - start) / simple_loads_;
}

}  // namespace velmo
