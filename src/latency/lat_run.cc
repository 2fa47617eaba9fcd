#include "latency/lat_run.h"

#include <chrono>
#include <functional>
#include <iostream>

#include "app/console.h"
#include "app/system.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// Least stride of a random chase with the prefetchers on: beyond the lines that an adjacent-line
// prefetch brings along. Bytes.
constexpr int32_t kMinRandomStride = 256;

}  // namespace

access_type_t prepare_pattern(LatWorker& worker) {
  access_type_t pattern = kSequential;
  int32_t& stride = worker.config_.stride;
  if (!disable_prefetch(worker.config_.latency_cpu.cpu_id)) {
    Warn() << "Failed to disable prefetcher. Check the root privileges.\n";
    std::cout << "Using random access pattern to measure latency.\n";
    pattern = kRandom;
    if (stride < kMinRandomStride) {
      std::cerr << stride << " Byte stride is not enough to measure latency so increase to "
                << kMinRandomStride << " Byte.\n";
      stride = kMinRandomStride;
    }
  }
  check_holds_stride(worker.config_.mem_size, stride);
  return pattern;
}

void restore_prefetch() {
  if (!rollback_msr()) Warn() << "Failed to rollback msr.\n";
}

void check_holds_stride(int64_t mem_size, int32_t stride) {
  if (mem_size >= stride) return;
  Fatal() << "Memory size is smaller than one stride of " << stride << " Byte: " << mem_size
          << " Byte. Increase it with -m\n";
}

LatThread::LatThread(LatWorker& worker, Operation operation)
    : worker_(worker),
      thread_(start_thread(operation, &worker, std::ref(mutex_), std::ref(cond_))) {
  set_thread_affinity(&thread_, worker.config_.latency_cpu.cpu_id);
}

LatThread::~LatThread() {
  if (!thread_.joinable()) return;
  Release();
  Join();
}

void LatThread::Release() {
  do {
    pthread_cond_broadcast(&cond_);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  } while (!worker_.IsReleased());
}

void LatThread::Join() { thread_.join(); }

}  // namespace velmo
