#include "latency/chase.h"

#include <immintrin.h>

#include <algorithm>
#include <chrono>

#include "app/tsc.h"

namespace velmo {
namespace {

// The builtin's type differs between compilers.
bool has_avx() { return static_cast<bool>(__builtin_cpu_supports("avx")); }

inline const void* Next(const void* p) { return *static_cast<const void* const*>(p); }

// Unsigned, so that a system clock that is set back ends the wait instead of prolonging it.
inline void DelayOnce(uint64_t delay_ns) {
  using Clock = std::chrono::system_clock;
  const Clock::time_point start = Clock::now();
  while (delay_ns > static_cast<uint64_t>(std::chrono::nanoseconds(Clock::now() - start).count())) {
  }
}

// One sample: `step` between two counter reads, and its record. The fences behind the record keep
// it from overlapping with the next sample.
template <typename Step>
inline const void* SampleOnce(const void* p, int64_t* hist, Step step) {
  long start;
  long end;
  rdtsc(start);
  p = step(p);
  rdtscp(end);
  ++hist[std::min(static_cast<uint64_t>(end - start), kMaxCycles)];
  _mm_lfence();
  _mm_mfence();
  return p;
}

}  // namespace

const void* Chase(const void* p, uint64_t steps) {
  for (; steps > 0; --steps) p = Next(p);
  return p;
}

const void* ChaseDelayed(const void* p, uint64_t steps, int delay_ns) {
  for (; steps > 0; --steps) {
    p = Next(p);
    DelayOnce(delay_ns);
  }
  return p;
}

const void* Sample(const void* p, uint64_t steps, int64_t* hist) {
  for (; steps > 0; --steps) p = SampleOnce(p, hist, Next);
  return p;
}

const void* SampleDelayed(const void* p, uint64_t steps, int delay_ns, int64_t* hist) {
  for (; steps > 0; --steps) {
    p = SampleOnce(p, hist, [delay_ns](const void* from) {
      const void* next = Next(from);
      DelayOnce(delay_ns);
      return next;
    });
  }
  return p;
}

void Delay(int delay_ns, uint64_t count) {
  for (; count > 0; --count) DelayOnce(delay_ns);
}

void ReadChunk(const void* p, int chunk) {
  constexpr size_t kPart = 16;  // bytes
  const auto* bytes = static_cast<const char*>(p);
  if (chunk == 1) {
    asm volatile("mov %0, %%rax" ::"m"(*bytes) : "rax");
  } else if (chunk == 4 && has_avx()) {
    asm volatile(
        "vmovdqa %0, %%ymm0\n\t"
        "vzeroupper" ::"m"(*bytes)
        : "xmm0");
  } else {
    for (size_t part = 0; part < static_cast<size_t>(chunk / 2); ++part) {
      asm volatile("movdqa %0, %%xmm0" ::"m"(bytes[kPart * part]) : "xmm0");
    }
  }
}

}  // namespace velmo
