// The time-stamp counter: serialised reads, and its rate.

#pragma once

namespace velmo {

// Stores the time-stamp counter into `t`, with a load fence on each side: no load crosses the read
// in either direction (Intel SDM vol. 2B, RDTSC).
inline void rdtsc(long& t) {
  long high;
  asm volatile(
      "lfence\n\t"
      "rdtsc\n\t"
      "shl $32, %1\n\t"
      "or %1, %0\n\t"
      "lfence"
      : "=a"(t), "=d"(high)
      :
      : "cc", "memory");
}

// Stores the time-stamp counter into `t` once all earlier loads are done (RDTSCP waits for them);
// the load fence behind it keeps later ones from starting before. The processor id is discarded.
inline void rdtscp(long& t) {
  long high;
  asm volatile(
      "rdtscp\n\t"
      "shl $32, %1\n\t"
      "or %1, %0\n\t"
      "lfence"
      : "=a"(t), "=d"(high)
      :
      : "rcx", "cc", "memory");
}

// Ticks per second of the counter: the largest of three measurements of 10 ms.
double counter_rate();

}  // namespace velmo
