#include "bandwidth/load_worker.h"

#include <algorithm>

#include "app/clock.h"
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

// A pass of the generic loop with the delay behind every unit.
void RunUnits(const LoadPlan& plan, void* src, void* dst, unsigned int units, unsigned int delay) {
  char* s = static_cast<char*>(src);
  char* d = static_cast<char*>(dst);
  for (; units > 0; --units) {
    generic_pass(plan.shape, s, d, 1, plan.write_lines, delay);
    s += plan.shape.read_lines * kLineBytes;
    d += plan.write_lines * kLineBytes;
  }
}

}  // namespace

LoadWorker::LoadWorker(const LoadSpec& spec) : spec_(spec) {}

void LoadWorker::SetMem(void* buf, long size, long fill) {
  read_base_ = buf;
  write_base_ = static_cast<char*>(buf) + size;
  region_size_ = size;
  const long stride = spec_.stride;
  const long count = size / stride;
  for (void* region : {read_base_, write_base_}) {
    if (fill != -1) {
      for (long i = 0; i < count; ++i) {
        static_cast<char*>(region)[i * stride] = static_cast<char>(fill);
      }
    }
    if (spec_.flush) flush_lines(region, count, stride);
  }
}

void LoadWorker::Start(Gate& gate) {
  LoadPlan plan(spec_.mix, spec_.full, blocks_per_pass_);
  int32_t blocks = blocks_per_pass_;
  // The generic loop has one delay a pass, where not asked for more.
  if ((plan.kernel != nullptr || spec_.delay_every_unit) && spec_.passes == 0) {
    blocks = std::min(blocks, blocks_of_pass(spec_.delay));
    plan = LoadPlan(spec_.mix, spec_.full, blocks);
  }
  Cursor read(read_base_, region_size_, plan.read_step);
  Cursor write(write_base_, region_size_, plan.write_step);
  const auto units = static_cast<unsigned int>(blocks);

  const auto run_pass = [&] {
    if (plan.kernel != nullptr) {
      plan.kernel(read.at(), write.at(), units, spec_.delay);
    } else if (spec_.delay_every_unit) {
      RunUnits(plan, read.at(), write.at(), units, spec_.delay);
    } else {
      generic_pass(plan.shape, read.at(), write.at(), units, plan.write_lines, spec_.delay);
    }
    bytes_.fetch_add(plan.pass_bytes, std::memory_order_relaxed);
    read.Advance();
    write.Advance();
  };

  gate.Wait();
  if (spec_.passes == 0) {
    while (!stop_.load(std::memory_order_relaxed)) run_pass();
    return;
  }
  const long start = monotonic_ns();
  for (uint64_t pass = 0; pass < spec_.passes; ++pass) run_pass();
  const auto elapsed = static_cast<double>(monotonic_ns() - start);
  bandwidth_ = static_cast<double>(bytes_) * 1e-6 / elapsed * 1e9;
}

}  // namespace velmo
