// What a read/write mix means for a load thread.

#pragma once

#include <cstdint>

#include "bandwidth/load_kernels.h"

namespace velmo {

// A read/write mix: shares of the line transfers, and whether stores are non-temporal.
struct Mix {
  int32_t read;
  int32_t write;
  int32_t stream;

  bool operator==(const Mix&) const = default;
};

// Blocks (of a kernel) or units (of the generic loop) of a pass, after which the worker updates its
// count, at most: with a delay behind each a pass has as few as blocks_of_pass says.
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

// Turns of the delay in a millisecond at 2 GHz, about one a cycle; fewer than most processors make.
inline constexpr int32_t kTurnsPerMs = 2'000'000;

// Blocks of a pass that takes about a millisecond at most, or as long as one delay, behind each: a
// longer one would make samples of the counter swing, and a stop wait for its end.
int32_t blocks_of_pass(uint32_t delay);

// What a load thread does.
struct LoadSpec {
  Mix mix{1, 0, 0};
  bool full = false;    // whole lines, not one 16-byte access a line
  uint32_t delay = 0;   // turns of an empty loop behind every block (bandwidth/load_kernels.h)
  int32_t stride = 64;  // bytes between the lines that are marked and flushed before
  bool flush = true;    // the regions' lines; false: they were, and hold nothing worth it since
  uint64_t passes = 0;  // to make; 0: until it is stopped
  // Mixes without a kernel have the delay behind every unit of their lines, not once a pass.
  bool delay_every_unit = false;
};

}  // namespace velmo
