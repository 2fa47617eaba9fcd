#include "bandwidth/load_plan.h"

#include <algorithm>

namespace velmo {
namespace {

KernelShape shape_of(const Mix& mix, bool full) {
  const bool stream = mix.stream != 0;
  const int64_t explicit_reads = stream ? mix.read : int64_t{mix.read} - mix.write;
  Store store = Store::kNone;
  if (mix.write > 0) store = stream ? Store::kStreaming : Store::kCached;
  return {explicit_reads, store, stream || full};
}

}  // namespace

int32_t blocks_of_pass(uint32_t delay) {
  const auto turns = static_cast<int32_t>(delay);
  if (turns <= 0) return kBlocksPerPass;
  return std::clamp(kTurnsPerMs / turns, 1, kBlocksPerPass);
}

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

}  // namespace velmo
