#include "bandwidth/load_worker.h"

#include <utility>

#include "app/system.h"
#include "mem/chain.h"

namespace velmo {
namespace {

// Where the next pass works in its region. Wraps to the start when another pass would not fit.
class Cursor {
 public:
  Cursor(void* base, int64_t region, int64_t step)
      : base_(static_cast<char*>(base)),
        at_(base),
        step_(step),
        passes_(step > 0 ? region / step : 0) {}

  void*& at() { return at_; }

  void Advance() {
    if (passes_ == 0) return;
    at_ = static_cast<char*>(at_) + step_;
    if (++done_ == passes_) {
      at_ = base_;
      done_ = 0;
    }
  }

 private:
  char* base_;
  void* at_;
  int64_t step_;
  int64_t passes_;  // per region
  int64_t done_ = 0;
};

KernelShape shape_of(const Mix& mix, bool full) {
  const bool stream = mix.stream != 0;
  const int64_t explicit_reads = stream ? mix.read : int64_t{mix.read} - mix.write;
  Store store = Store::kNone;
  if (mix.write > 0) store = stream ? Store::kStreaming : Store::kCached;
  return {explicit_reads, store, stream || full};
}

}  // namespace

LoadPlan::LoadPlan(const Mix& mix, bool full, int32_t blocks_per_pass)
    : shape(shape_of(mix, full)),
      write_lines(mix.write),
      kernel(write_lines <= 1 ? FindKernel(shape) : nullptr) {
  const int64_t line_pass =
      int64_t{kLineBytes} * blocks_per_pass * (kernel != nullptr ? kBlockLines : 1);
  read_step = line_pass * shape.read_lines;
  write_step = line_pass * write_lines;
  pass_bytes = line_pass * (int64_t{mix.read} + mix.write);
}

LoadWorker::LoadWorker(Configurator config) : config_(std::move(config)) {}

void LoadWorker::SetMem(void* buf, long size, long fill) {
  read_base_ = buf;
  write_base_ = static_cast<char*>(buf) + size;
  fill_ = fill;
  region_size_ = size;
  const long stride = config_.stride;
  const long count = size / stride;
  for (void* region : {read_base_, write_base_}) {
    if (fill != -1) {
      for (long i = 0; i < count; ++i) {
        static_cast<char*>(region)[i * stride] = static_cast<char>(fill);
      }
    }
    flush_lines(region, count, stride);
  }
}

void LoadWorker::Start(pthread_mutex_t& mutex, pthread_cond_t& cond, std::atomic<int>& waiting) {
  const LoadPlan plan({config_.read, config_.write, config_.stream ? 1 : 0}, config_.full,
                      blocks_per_pass_);
  lines_per_block_ = plan.kernel != nullptr ? kBlockLines : 1;
  Cursor read(read_base_, region_size_, plan.read_step);
  Cursor write(write_base_, region_size_, plan.write_step);
  const auto units = static_cast<unsigned int>(blocks_per_pass_);
  const auto delay = static_cast<unsigned int>(config_.bw_delay);

  const auto run_pass = [&] {
    if (plan.kernel != nullptr) {
      plan.kernel(read.at(), write.at(), units, delay);
    } else {
      generic_pass(plan.shape, read.at(), write.at(), units, plan.write_lines, delay);
    }
    bytes_.fetch_add(plan.pass_bytes, std::memory_order_relaxed);
    read.Advance();
    write.Advance();
  };

  pthread_mutex_lock(&mutex);
  ++waiting;
  pthread_cond_wait(&cond, &mutex);
  --waiting;
  pthread_mutex_unlock(&mutex);

  if (fill_ == -1) {
    while (!stop_.load(std::memory_order_relaxed)) run_pass();
    return;
  }
  const long start = monotonic_ns();
  for (uint64_t pass = 0; pass < config_.use_pa; ++pass) run_pass();
  const auto elapsed = static_cast<double>(monotonic_ns() - start);
  bandwidth_ = static_cast<double>(bytes_) * 1e-6 / elapsed * 1e9;
}

}  // namespace velmo
