// Pointer-chase chains: laid into a buffer, flushed from the caches, walked.
//
// A buffer of `size` bytes holds n = size / stride elements of `stride` bytes. The first word of an
// element is the address of the next one; the last element points back to the first, which is the
// buffer's start, so a walk begins there and may take any number of steps.

#pragma once

#include <cstdint>
#include <vector>

namespace velmo {

inline constexpr int kLineBytes = 64;  // of the caches

// The random order stays inside one block of this many bytes at a time: few pages are in use at
// once, and no prefetcher can guess the next line.
inline constexpr int kChainBlock = 256 * 1024;

// Order of the chain.
enum access_type_t { kSequential = 0, kRandom = 1 };

// Lays a chain that visits the elements in the order of their addresses. With n <= 1 element 0
// points to itself. Always 1.
int make_seq_chain(void*& buf, long size, int stride);

// Lays a chain that visits the elements block by block, in a new random order inside each block
// that begins at the block's first element; a remainder behind the last full block is one more,
// smaller block. `stride` is 24 .. kChainBlock; with n = 0 nothing is written. Always 1.
//
// Elements of full blocks also hold, for a reader of a memory dump, their own index (element 0:
// 0xDEADBEEF) in word 1 and the index of the next element in word 2. At most one block's indices
// are in memory at a time.
int make_rnd_chain(void*& buf, long size, int stride);

// Lays a chain of that order and evicts it from all caches.
void lay_chain(void* buf, long size, int stride, access_type_t order);

// The random chain, laid and evicted by several threads, one on each of `cpus`, each a part of the
// blocks. They touch the pages first.
void lay_rnd_chain_on(const std::vector<int>& cpus, void* buf, long size, int stride);

// Evicts from all caches the line at buf + i * stride, for i = 0 .. count - 1, and waits until that
// is done.
void flush_lines(const void* buf, uint64_t count, long stride);

}  // namespace velmo
