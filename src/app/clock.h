// The monotonic clock.

#pragma once

namespace velmo {

// CLOCK_MONOTONIC in nanoseconds.
long monotonic_ns();

// Seconds since `start`, of monotonic_ns.
double seconds_since(long start);

// Busy-waits `us` microseconds on the monotonic clock; 0.000001 and less returns at once. The
// thread keeps its CPU.
void usec_sleep(double us);

}  // namespace velmo
