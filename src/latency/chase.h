// The measuring loops. Each is one function whose loop holds what is measured, its counter and, for
// the sampled ones, the record of the sample; nothing else.

#pragma once

#include <cstdint>

namespace velmo {

// Cycle counts that a histogram tells apart. It has one entry more, for all longer samples.
inline constexpr uint64_t kMaxCycles = 1'000'000;

// Walks `steps` links of the chain from `p`: one dependent load each. Returns where it ends.
const void* Chase(const void* p, uint64_t steps);

// As Chase, with a busy-wait of `delay_ns` nanoseconds on the system clock behind every step.
const void* ChaseDelayed(const void* p, uint64_t steps, int delay_ns);

// As Chase and ChaseDelayed, timing every step (with its delay) by the time-stamp counter and
// counting it in `hist`, kMaxCycles + 1 entries indexed by its length in cycles.
const void* Sample(const void* p, uint64_t steps, int64_t* hist);
const void* SampleDelayed(const void* p, uint64_t steps, int delay_ns, int64_t* hist);

// Runs the busy-wait of the delayed walks `count` times.
void Delay(int delay_ns, uint64_t count);

// Reads 8 * `chunk` bytes at `p` (chunk 1, 2 or 4; aligned): one load of that width, or two of 16
// bytes for 32 on a processor without AVX. Keeps the walk that ends at `p` alive.
void ReadChunk(const void* p, int chunk);

}  // namespace velmo
