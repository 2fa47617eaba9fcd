// The monotonic clock.

#pragma once

namespace velmo {

// CLOCK_MONOTONIC in nanoseconds.
long monotonic_ns();

// Seconds since `start`, of monotonic_ns.
double seconds_since(long start);

}  // namespace velmo
