#include "app/clock.h"

#include <ctime>

namespace velmo {

long monotonic_ns() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000L + now.tv_nsec;
}

double seconds_since(long start) { return static_cast<double>(monotonic_ns() - start) * 1e-9; }

}  // namespace velmo
