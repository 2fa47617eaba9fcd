#include "app/tsc.h"

#include <algorithm>
#include <chrono>

namespace velmo {
namespace {

// Time-stamp-counter ticks per second over a spin of 10 ms.
double counter_rate_once() {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kSpin(10);
  const Clock::time_point start = Clock::now();
  long start_count;
  rdtsc(start_count);
  Clock::time_point now;
  long count;
  do {
    now = Clock::now();
    rdtsc(count);
  } while (now < start + kSpin);
  const std::chrono::duration<double> seconds = now - start;
  return static_cast<double>(count - start_count) / seconds.count();
}

}  // namespace

double counter_rate() {
  constexpr int kTrials = 3;
  double rate = 0;
  for (int trial = 0; trial < kTrials; ++trial) rate = std::max(rate, counter_rate_once());
  return rate;
}

}  // namespace velmo
