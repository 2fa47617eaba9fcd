// What a benchmark does around a measuring operation of a LatWorker: prefetchers, pattern, thread.

#pragma once

#include <pthread.h>

#include <thread>

#include "latency/lat_worker.h"

namespace velmo {

// Switches the prefetchers of the worker's CPU off and says which chain may be measured: where they
// stay on, with a message, only a random one, for which the worker's stride is raised to 256 bytes.
// To be paired with restore_prefetch. exit(1) when the worker's buffer does not hold one stride.
access_type_t prepare_pattern(LatWorker& worker);

// Puts the prefetchers back; a failure is a warning.
void restore_prefetch();

// exit(1) when `mem_size` bytes do not hold one `stride`.
void check_holds_stride(int64_t mem_size, int32_t stride);

// The thread of one measuring operation, pinned to the worker's CPU. It waits for its release, so
// that it is in place before it touches memory.
class LatThread {
 public:
  using Operation = void (LatWorker::*)(pthread_mutex_t&, pthread_cond_t&);

  LatThread(LatWorker& worker, Operation operation);
  // Lets it go, if that was not done yet, and joins it.
  ~LatThread();
  LatThread(const LatThread&) = delete;
  LatThread& operator=(const LatThread&) = delete;

  // Broadcasts, every 10 ms, until the thread has left its wait: one that is late on a loaded
  // machine would miss a single broadcast.
  void Release();

  // Waits until the measurement is done and reported.
  void Join();

 private:
  LatWorker& worker_;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond_ = PTHREAD_COND_INITIALIZER;
  std::thread thread_;
};

}  // namespace velmo
