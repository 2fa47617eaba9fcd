#include "mem/chain.h"

#include <cpuid.h>
#include <immintrin.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "app/threads.h"
#include "mem/mapping.h"

namespace velmo {
namespace {

// Chain elements by index.
class Elements {
 public:
  Elements(void* buf, int stride) : base_(static_cast<char*>(buf)), stride_(stride) {}

  uint64_t* at(uint64_t index) const {
    return reinterpret_cast<uint64_t*>(base_ + index * static_cast<uint64_t>(stride_));
  }
  void Link(uint64_t from, uint64_t to) const { at(from)[0] = reinterpret_cast<uint64_t>(at(to)); }

 private:
  char* base_;
  int stride_;
};

constexpr uint64_t kFirstElementMark = 0xDEADBEEF;

// Optimised flush where the processor has it (CPUID leaf 7, EBX bit 23), else the ordered one,
// which all x86-64 processors have.
bool has_clflushopt() {
  unsigned eax;
  unsigned ebx;
  unsigned ecx;
  unsigned edx;
  return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & bit_CLFLUSHOPT) != 0;
}

// The least count of blocks that hold the elements of `size` bytes, a smaller last one included.
uint64_t blocks_of(long size, int stride) {
  const auto n = static_cast<uint64_t>(size / stride);
  const uint64_t per = kChainBlock / stride;
  return (n + per - 1) / per;
}

// Lays the blocks `begin` to `end` - 1 of a random chain over `size` bytes.
void lay_blocks(void* buf, long size, int stride, uint64_t begin, uint64_t end) {
  const Elements elements(buf, stride);
  const auto n = static_cast<uint64_t>(size / stride);
  const uint64_t per = kChainBlock / stride;
  const uint64_t full = n / per * per;  // elements in full blocks

  std::random_device entropy("default");
  std::mt19937 generator(entropy());
  std::vector<uint32_t> order(per);  // offsets inside the block, in the order of the walk
  for (uint64_t first = begin * per; first < std::min(n, end * per); first += per) {
    const uint64_t count = std::min(per, n - first);
    order.resize(count);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin() + 1, order.end(), generator);

    const uint64_t next_block = first + count < n ? first + count : 0;
    for (uint64_t j = 0; j < count; ++j) {
      const uint64_t from = first + order[j];
      const uint64_t to = j + 1 < count ? first + order[j + 1] : next_block;
      elements.Link(from, to);
      if (first >= full) continue;  // a remainder holds the links alone
      elements.at(from)[1] = from == 0 ? kFirstElementMark : from;
      if (j + 1 < count || first + count < full) elements.at(from)[2] = to;
    }
  }
}

}  // namespace

int make_seq_chain(void*& buf, long size, int stride) {
  const Elements elements(buf, stride);
  const long n = size / stride;
  for (long i = 0; i + 1 < n; ++i) elements.Link(i, i + 1);
  elements.Link(n > 1 ? n - 1 : 0, 0);
  return 1;
}

int make_rnd_chain(void*& buf, long size, int stride) {
  lay_blocks(buf, size, stride, 0, blocks_of(size, stride));
  return 1;
}

void lay_chain(void* buf, long size, int stride, access_type_t order) {
  if (order == kSequential) {
    make_seq_chain(buf, size, stride);
  } else {
    make_rnd_chain(buf, size, stride);
  }
  flush_lines(buf, static_cast<uint64_t>(size / stride), stride);
}

void lay_rnd_chain_on(const std::vector<int>& cpus, void* buf, long size, int stride) {
  const uint64_t blocks = blocks_of(size, stride);
  const auto n = static_cast<uint64_t>(size / stride);
  const uint64_t per = kChainBlock / stride;
  run_pinned(cpus, [&](size_t part) {
    const uint64_t begin = blocks * part / cpus.size();
    const uint64_t end = blocks * (part + 1) / cpus.size();
    const uint64_t first = std::min(n, begin * per);
    const uint64_t count = std::min(n, end * per) - first;
    char* const at = static_cast<char*>(buf) + first * stride;
    touch_pages(at, static_cast<long>(count) * stride);
    lay_blocks(buf, size, stride, begin, end);
    flush_lines(at, count, stride);
  });
}

void flush_lines(const void* buf, uint64_t count, long stride) {
  const char* line = static_cast<const char*>(buf);
  if (has_clflushopt()) {
    for (uint64_t i = 0; i < count; ++i, line += stride) asm volatile("clflushopt %0" ::"m"(*line));
  } else {
    for (uint64_t i = 0; i < count; ++i, line += stride) _mm_clflush(line);
  }
  _mm_mfence();
}

}  // namespace velmo
