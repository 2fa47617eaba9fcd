// LatWorker measures the latency of one memory target from one CPU.
//
// It works on a pointer chain that it lays into a buffer of its benchmark. A worker is given its
// buffer (SetMem), set up for one pattern (InitParameter), and runs one measuring operation on a
// thread of its own that the caller pins; the results are read once that thread is joined. It may
// then be set up again.

#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "config/configurator.h"

namespace velmo {

// Order of the chain.
enum access_type_t { kSequential = 0, kRandom = 1 };

class LatWorker {
 public:
  explicit LatWorker(Configurator config);
  virtual ~LatWorker() = default;
  LatWorker(const LatWorker&) = delete;
  LatWorker& operator=(const LatWorker&) = delete;

  // The buffer under test, not owned; config_.mem_size must hold its size.
  void SetMem(void* buf);

  // Lays the chain, flushes it from the caches and resets the results. `verbose`: below 0 nothing
  // is printed, 0 console, 1 also the log file, 2 also debug lines and the log's debug section.
  // `burst` shortens the run for a measurement under load. The buffer must hold one stride.
  void InitParameter(access_type_t type, int node_idx, int verbose, bool burst);

  // Average over simple_loads_ steps of the chain by the monotonic clock, into avg_.
  void Simple();

  // Wait for the release of the gate, measure the average and the distribution of the latency, back
  // to back (Burst) or with a busy-wait of config_.delay ns behind every step (Delayed), and report
  // (Summary). A chunk other than 1, 2 or 4 measures nothing and does not wait.
  void Burst(pthread_mutex_t& mutex, pthread_cond_t& cond);
  void Delayed(pthread_mutex_t& mutex, pthread_cond_t& cond);

  // Turns hist_ and base_avg_ into the results, prints and logs them. A measurement without samples
  // reports base_avg_ alone.
  void Summary();

  // True once the measuring thread has left its wait. Until then the driver has to broadcast again:
  // a thread that is late would miss a single broadcast.
  bool IsReleased() const { return released_; }

  double avg_ = 0;       // ns
  uint32_t median_ = 0;  // percentiles in ns
  uint32_t p0_1_ = 0;
  uint32_t p1_ = 0;
  uint32_t p99_ = 0;
  uint32_t p99_9_ = 0;
  double overhead_ = 0;  // ns: cost of timing one sample, histogram mean less the average

  Configurator config_;
  void* buf_ = nullptr;
  int verbose_ = 0;
  std::string pattern_;        // "(Sequential)" or "(Random)"
  std::string log_name_;       // stem of the log name, then the name
  std::string title_;          // heading of the log
  uint32_t laps_;              // one more than the sampled passes over the chain
  std::vector<int64_t> hist_;  // samples by length in cycles; the last entry holds all longer ones
  double base_avg_ = 0;        // ns, without the cost of timing
  int reserved_ = 0;
  int node_idx_ = 0;  // memory target
  access_type_t access_ = kSequential;
  uint32_t burst_len_ = 100'000;        // delays of the calibration
  uint32_t simple_loads_ = 10'000'000;  // steps of Simple
  uint32_t min_loads_ = 20'000'000;     // least steps of the unsampled pass
  double target_loads_ = 30'000'000.0;  // samples that the passes together must reach
  int delay_ns_ = 0;                    // measured delay, at verbosity 2 only
  uint64_t elements_ = 0;
  uint64_t loads_ = 0;  // steps of the unsampled pass

 private:
  struct Mode;
  struct Distribution;

  void Measure(const Mode& mode, pthread_mutex_t& mutex, pthread_cond_t& cond);
  void WaitForRelease(pthread_mutex_t& mutex, pthread_cond_t& cond);
  double CalibrateDelay();

  Distribution Distribute() const;
  void SetPercentiles(const Distribution& samples);
  void PrintDebug(double mean) const;
  void PrintResults(std::ostream& out, uint64_t samples) const;
  void WriteLog(const Distribution& samples);
  void WriteDebugSection(std::ostream& log, double mean) const;
  void WriteHistogram(std::ostream& log, double shift) const;

  std::atomic<bool> released_{false};
};

}  // namespace velmo
