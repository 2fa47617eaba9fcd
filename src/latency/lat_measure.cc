// The burst and the delayed measurement: one frame around two pairs of measuring loops.

#include <string>

#include "app/console.h"
#include "app/system.h"
#include "latency/chase.h"
#include "latency/lat_worker.h"

namespace velmo {

struct LatWorker::Mode {
  const char* log_part;
  const char* title;
  std::string announcement;
  bool delayed;
};

void LatWorker::Burst(pthread_mutex_t& mutex, pthread_cond_t& cond) {
  Measure({"burst-lat_", "Burst Latency", "Burst Latency " + pattern_, false}, mutex, cond);
}

void LatWorker::Delayed(pthread_mutex_t& mutex, pthread_cond_t& cond) {
  Measure({"delayed-lat_", "Delayed Latency", "Delayed Latency", true}, mutex, cond);
}

void LatWorker::Measure(const Mode& mode, pthread_mutex_t& mutex, pthread_cond_t& cond) {
  if (verbose_ > 0) {
    log_name_ += mode.log_part;
    title_ = mode.title;
  }
  if (verbose_ >= 0) std::cout << "\nStart " << mode.announcement << '\n';
  const int chunk = config_.chunk;
  if (chunk != 1 && chunk != 2 && chunk != 4) {
    released_ = true;
    Summary();
    return;
  }
  WaitForRelease(mutex, cond);

  const bool debug = verbose_ == 2;
  if (debug) Debug() << "start warm-up (look up all address)\n";
  const void* p = Chase(buf_, elements_);
  ReadChunk(p, chunk);
  const double real_delay = mode.delayed ? CalibrateDelay() : 0.0;

  long start = monotonic_ns();
  p = mode.delayed ? ChaseDelayed(p, loads_, config_.delay) : Chase(p, loads_);
  long end = monotonic_ns();
  ReadChunk(p, chunk);
  base_avg_ = static_cast<double>(end - start) / static_cast<double>(loads_) - real_delay;
  if (debug) {
    Debug() << "none QoS dt: " << end - start << '\n';
    Debug() << "none QoS latency: " << base_avg_ << '\n';
    Debug() << "start QoS latency\n";
  }

  const uint64_t samples = laps_ > 1 ? (laps_ - 1) * elements_ : 0;
  start = monotonic_ns();
  p = mode.delayed ? SampleDelayed(p, samples, config_.delay, hist_.data())
                   : Sample(p, samples, hist_.data());
  ReadChunk(p, chunk);
  end = monotonic_ns();
  if (debug) Debug() << "QoS dt: " << end - start << '\n';
  check_still_pinned(config_.latency_cpu.cpu_id);
  Summary();
}

void LatWorker::WaitForRelease(pthread_mutex_t& mutex, pthread_cond_t& cond) {
  pthread_mutex_lock(&mutex);
  pthread_cond_wait(&cond, &mutex);
  pthread_mutex_unlock(&mutex);
  released_ = true;
}

// Real length of the configured delay, in ns.
double LatWorker::CalibrateDelay() {
  const bool debug = verbose_ == 2;
  if (debug) Debug() << "measure delay [ns]\n";
  const long start = monotonic_ns();
  Delay(config_.delay, burst_len_);
  const long end = monotonic_ns();
  const double real_delay = static_cast<double>(end - start) / burst_len_;
  if (debug) {
    Debug() << "input delay: " << config_.delay << '\n';
    Debug() << "real delay : " << real_delay << '\n';
    delay_ns_ = static_cast<int>(real_delay);
    Debug() << "start normal latency\n";
  }
  return real_delay;
}

}  // namespace velmo
