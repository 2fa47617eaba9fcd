// The thread of one measuring operation of a LatWorker.

#pragma once

#include <thread>

#include "app/gate.h"
#include "latency/lat_worker.h"

namespace velmo {

// Pinned to the CPU that the worker measures from. It waits for its release, so that it is in place
// before it touches memory.
class LatThread {
 public:
  using Operation = void (LatWorker::*)(Gate&);

  LatThread(LatWorker& worker, Operation operation);
  // Lets it go, if that was not done yet, and joins it.
  ~LatThread();
  LatThread(const LatThread&) = delete;
  LatThread& operator=(const LatThread&) = delete;

  void Release() { gate_.Open(); }

  // Waits until the measurement is done.
  void Join() { thread_.join(); }

 private:
  Gate gate_;
  std::thread thread_;
};

}  // namespace velmo
