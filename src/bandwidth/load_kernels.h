// The kernels that generate memory traffic of a fixed read-to-write mix.
//
// A kernel streams through its buffers in blocks of 256 bytes written (or read, where it only
// reads) with aligned 16-byte accesses, and spins behind every block. A name tells the memory
// traffic for each line stored, with the line that an ordinary store reads for ownership: rN lines
// read, w1 one line written. Suffix n: non-temporal stores, which cause no such read. Suffix p: one
// access a line instead of all four.
//
// Every kernel starts at the beginning of its buffers and leaves the pointers unchanged. Buffers
// are 16-byte aligned and hold `count` blocks; a two-buffer kernel reads the first and writes the
// second. What is stored is of no significance. `count` 0 touches nothing. `delay` is in turns of
// an empty loop, about a cycle each; 0 and 2^31 or more are one turn.

#pragma once

#include <cstdint>

#include "mem/chain.h"

namespace velmo {

inline constexpr int kBlockLines = 4;  // lines written (or, by a kernel that only reads, read)

void r1(void*& buf, unsigned int count, unsigned int delay);
void r1w1(void*& buf, unsigned int count, unsigned int delay);
void w1n(void*& buf, unsigned int count, unsigned int delay);
void r1p(void*& buf, unsigned int count, unsigned int delay);
void r1w1p(void*& buf, unsigned int count, unsigned int delay);

void r2w1(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r3w1(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r1w1n(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r2w1n(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r3w1n(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r2w1p(void*& src, void*& dst, unsigned int count, unsigned int delay);
void r3w1p(void*& src, void*& dst, unsigned int count, unsigned int delay);

enum class Store { kNone, kCached, kStreaming };

// The three numbers in which the kernels differ.
struct KernelShape {
  int64_t read_lines;  // lines loaded for each line stored (or for each line of a block)
  Store store;
  bool whole_line;  // all four 16-byte parts of a line, or the first alone

  bool operator==(const KernelShape&) const = default;
};

// A kernel of either kind; one-buffer kernels use the buffer that they need.
using Kernel = void (*)(void*& src, void*& dst, unsigned int count, unsigned int delay);

// The kernel of this shape, or null when there is none.
Kernel FindKernel(const KernelShape& shape);

// A mix without a kernel of its own: `units` times `shape.read_lines` lines loaded from `src` and
// `write_lines` lines stored to `dst`, then one spin of `delay` turns; none where `delay` is 0 or,
// as a signed number, negative.
void generic_pass(const KernelShape& shape, void* src, void* dst, unsigned int units,
                  int64_t write_lines, unsigned int delay);

}  // namespace velmo
