#include "latency/latency_thread.h"

#include <functional>

#include "app/threads.h"

namespace velmo {

LatThread::LatThread(LatWorker& worker, Operation operation)
    : thread_(start_thread(operation, &worker, std::ref(gate_))) {
  set_thread_affinity(&thread_, worker.spec_.cpu);
}

LatThread::~LatThread() {
  if (!thread_.joinable()) return;
  Release();
  Join();
}

}  // namespace velmo
