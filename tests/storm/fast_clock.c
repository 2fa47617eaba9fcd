// Preloaded into velmo, so that a shot of the storm takes a second or two: the calls of the clock
// calibration are answered at once by a clock that stands; behind them it runs kSpeed times as fast,
// and sleeps are as much shorter. alarm(2), which limits velmo's signal handler, is left alone.

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
static long begun;  // when the clock began to run

static long real_ns(void) {
  struct timespec now;
  real_clock(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

__attribute__((constructor)) static void find_real(void) {
  real_clock = dlsym(RTLD_NEXT, "clock_gettime");
  real_sleep = dlsym(RTLD_NEXT, "nanosleep");
  begun = real_ns();
}

// One clock for all, with a start of its own: velmo takes nothing but differences.
int clock_gettime(clockid_t clock, struct timespec* now) {
  (void)clock;
  long ns = kSecond;
  if (calls < kCalibrationCalls) {
    if (++calls == kCalibrationCalls) begun = real_ns();
  } else {
    ns += (real_ns() - begun) * kSpeed;
  }
  now->tv_sec = ns / kSecond;
  now->tv_nsec = ns % kSecond;
  return 0;
}

int nanosleep(const struct timespec* wanted, struct timespec* left) {
  const long ns = (wanted->tv_sec * kSecond + wanted->tv_nsec) / kSpeed;
  const struct timespec shorter = {ns / kSecond, ns % kSecond};
  return real_sleep(&shorter, left);
}
