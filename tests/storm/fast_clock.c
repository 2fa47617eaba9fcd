// Preloaded into velmo, so that a shot of the storm takes a second or two: the calls of the clock
// calibration are answered at once; behind them clocks run kSpeed times as fast, and sleeps are as
// much shorter. alarm(2), which limits velmo's signal handler, is left alone.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <time.h>

static const long kSpeed = 16;
static const long kSecond = 1000000000;  // ns
// Two loops over Configurator::clock_test_count pairs.
static const long kCalibrationCalls = 4 * 50000000L;

static int (*real_clock)(clockid_t, struct timespec*);
static int (*real_sleep)(const struct timespec*, struct timespec*);
static long calls;
static struct timespec frozen;

// One clock for all: velmo takes nothing but differences.
static void fast_clock(struct timespec* now) {
  real_clock(CLOCK_MONOTONIC, now);
  const long ns = (now->tv_sec * kSecond + now->tv_nsec) * kSpeed;
  now->tv_sec = ns / kSecond;
  now->tv_nsec = ns % kSecond;
}

__attribute__((constructor)) static void find_real(void) {
  real_clock = dlsym(RTLD_NEXT, "clock_gettime");
  real_sleep = dlsym(RTLD_NEXT, "nanosleep");
  fast_clock(&frozen);
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  (void)clock;
  if (calls < kCalibrationCalls) {
    ++calls;
    *now = frozen;
  } else {
    fast_clock(now);
  }
  return 0;
}

int nanosleep(const struct timespec* wanted, struct timespec* left) {
  const long ns = (wanted->tv_sec * kSecond + wanted->tv_nsec) / kSpeed;
  const struct timespec shorter = {ns / kSecond, ns % kSecond};
  return real_sleep(&shorter, left);
}
