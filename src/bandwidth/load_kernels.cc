#include "bandwidth/load_kernels.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace velmo {
namespace {

#define VELMO_INLINE inline __attribute__((always_inline))

constexpr int kPartBytes = 16;
constexpr int kParts = kLineBytes / kPartBytes;

// Every access is one volatile statement with a constant offset: the compiler can neither drop,
// merge, widen nor reorder it.
template <int kOffset>
VELMO_INLINE void LoadPart(const char* base) {
  asm volatile("movdqa %c1(%0), %%xmm0" ::"r"(base), "i"(kOffset) : "xmm0");
}

// What is stored. Not zeros: lines of zeros are written at twice the speed of others by some
// processors (seen with non-temporal stores on AMD family 25: 54 and 27 GB/s).
VELMO_INLINE __m128i StoreData() {
  return _mm_set1_epi64x(static_cast<long long>(0x9E3779B97F4A7C15));
}

template <Store kStore, int kOffset>
VELMO_INLINE void StorePart(char* base, __m128i data) {  // NOLINT(*-non-const-parameter): stored to
  if constexpr (kStore == Store::kStreaming) {
    asm volatile("movntdq %1, %c2(%0)" ::"r"(base), "x"(data), "i"(kOffset));
  } else {
    asm volatile("movdqa %1, %c2(%0)" ::"r"(base), "x"(data), "i"(kOffset));
  }
}

// Calls `access` with 0 .. kCount - 1 as compile-time constants.
template <int kCount, typename Access>
VELMO_INLINE void Repeat(Access access) {
  [&]<int... kIndex>(std::integer_sequence<int, kIndex...>) __attribute__((always_inline)) {
    (access(std::integral_constant<int, kIndex>()), ...);
  }
  (std::make_integer_sequence<int, kCount>());
}

template <int kOffset, bool kWhole>
VELMO_INLINE void LoadLine(const char* base) {
  Repeat<kWhole ? kParts : 1>([base](auto part) __attribute__((always_inline)) {
    LoadPart<kOffset + part * kPartBytes>(base);
  });
}

template <Store kStore, int kOffset, bool kWhole>
VELMO_INLINE void StoreLine(char* base, __m128i data) {
  if constexpr (kStore != Store::kNone) {
    Repeat<kWhole ? kParts : 1>([ base, data ](auto part) __attribute__((always_inline)) {
      StorePart<kStore, kOffset + part * kPartBytes>(base, data);
    });
  }
}

// At least one turn, and one alone where `turns` is negative as a signed number.
VELMO_INLINE void SpinTurns(unsigned int turns) {
  unsigned int i = 0;
  asm volatile(
      "1: nop\n\t"
      "add $1, %0\n\t"
      "cmp %1, %0\n\t"
      "jl 1b"
      : "+&r"(i)
      : "r"(turns)
      : "cc");
}

template <KernelShape kShape>
__attribute__((noinline)) void RunKernel(void*& src, void*& dst, unsigned int count,
                                         unsigned int delay) {
  constexpr int kReads = static_cast<int>(kShape.read_lines);
  const char* s = static_cast<const char*>(src);
  char* d = static_cast<char*>(dst);
  const __m128i data = StoreData();
  for (; count > 0; --count) {
    Repeat<kBlockLines>([ s, d, data ](auto line) __attribute__((always_inline)) {
      Repeat<kReads>([s](auto read) __attribute__((always_inline)) {
        LoadLine<(decltype(line)::value * kReads + read) * kLineBytes, kShape.whole_line>(s);
      });
      StoreLine<kShape.store, line * kLineBytes, kShape.whole_line>(d, data);
    });
    s += ptrdiff_t{kReads} * kBlockLines * kLineBytes;
    d += ptrdiff_t{kBlockLines} * kLineBytes;
    SpinTurns(delay);
  }
  asm volatile("" ::: "memory");
}

template <Store kStore, bool kWhole>
void RunGeneric(const char* s, char* d, unsigned int units, int64_t reads, int64_t writes) {
  const __m128i data = StoreData();
  for (; units > 0; --units) {
    for (int64_t i = 0; i < reads; ++i, s += kLineBytes) LoadLine<0, kWhole>(s);
    for (int64_t i = 0; i < writes; ++i, d += kLineBytes) StoreLine<kStore, 0, kWhole>(d, data);
  }
  asm volatile("" ::: "memory");
}

constexpr KernelShape kR1{1, Store::kNone, true};
constexpr KernelShape kR1W1{0, Store::kCached, true};
constexpr KernelShape kR2W1{1, Store::kCached, true};
constexpr KernelShape kR3W1{2, Store::kCached, true};
constexpr KernelShape kW1N{0, Store::kStreaming, true};
constexpr KernelShape kR1W1N{1, Store::kStreaming, true};
constexpr KernelShape kR2W1N{2, Store::kStreaming, true};
constexpr KernelShape kR3W1N{3, Store::kStreaming, true};
constexpr KernelShape kR1P{1, Store::kNone, false};
constexpr KernelShape kR1W1P{0, Store::kCached, false};
constexpr KernelShape kR2W1P{1, Store::kCached, false};
constexpr KernelShape kR3W1P{2, Store::kCached, false};

struct KernelEntry {
  KernelShape shape;
  Kernel run;
};

constexpr KernelEntry kKernels[] = {
    {kR1, RunKernel<kR1>},       {kR1W1, RunKernel<kR1W1>},   {kR2W1, RunKernel<kR2W1>},
    {kR3W1, RunKernel<kR3W1>},   {kW1N, RunKernel<kW1N>},     {kR1W1N, RunKernel<kR1W1N>},
    {kR2W1N, RunKernel<kR2W1N>}, {kR3W1N, RunKernel<kR3W1N>}, {kR1P, RunKernel<kR1P>},
    {kR1W1P, RunKernel<kR1W1P>}, {kR2W1P, RunKernel<kR2W1P>}, {kR3W1P, RunKernel<kR3W1P>},
};

}  // namespace

void r1(void*& buf, unsigned int count, unsigned int delay) {
  RunKernel<kR1>(buf, buf, count, delay);
}

void r1w1(void*& buf, unsigned int count, unsigned int delay) {
  RunKernel<kR1W1>(buf, buf, count, delay);
}

void r2w1(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR2W1>(src, dst, count, delay);
}

void r3w1(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR3W1>(src, dst, count, delay);
}

void w1n(void*& buf, unsigned int count, unsigned int delay) {
  RunKernel<kW1N>(buf, buf, count, delay);
}

void r1w1n(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR1W1N>(src, dst, count, delay);
}

void r2w1n(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR2W1N>(src, dst, count, delay);
}

void r3w1n(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR3W1N>(src, dst, count, delay);
}

void r1p(void*& buf, unsigned int count, unsigned int delay) {
  RunKernel<kR1P>(buf, buf, count, delay);
}

void r1w1p(void*& buf, unsigned int count, unsigned int delay) {
  RunKernel<kR1W1P>(buf, buf, count, delay);
}

void r2w1p(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR2W1P>(src, dst, count, delay);
}

void r3w1p(void*& src, void*& dst, unsigned int count, unsigned int delay) {
  RunKernel<kR3W1P>(src, dst, count, delay);
}

Kernel FindKernel(const KernelShape& shape) {
  const auto* entry =
      std::find_if(std::begin(kKernels), std::end(kKernels),
                   [&shape](const KernelEntry& candidate) { return candidate.shape == shape; });
  return entry != std::end(kKernels) ? entry->run : nullptr;
}

void generic_pass(const KernelShape& shape, void* src, void* dst, unsigned int units,
                  int64_t write_lines, unsigned int delay) {
  const char* s = static_cast<const char*>(src);
  char* d = static_cast<char*>(dst);
  if (shape.store == Store::kStreaming) {
    RunGeneric<Store::kStreaming, true>(s, d, units, shape.read_lines, write_lines);
  } else if (shape.whole_line) {
    RunGeneric<Store::kCached, true>(s, d, units, shape.read_lines, write_lines);
  } else {
    RunGeneric<Store::kCached, false>(s, d, units, shape.read_lines, write_lines);
  }
  if (static_cast<int>(delay) > 0) SpinTurns(delay);
}

}  // namespace velmo
