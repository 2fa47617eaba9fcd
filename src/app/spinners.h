// Threads that keep their CPUs awake while others measure.

#pragma once

#include <atomic>
#include <thread>
#include <vector>

namespace velmo {

// The threads end with the object. They have the kernel's idle priority: each keeps its CPU awake,
// and leaves it to any other thread, a measuring one on a machine with one core included.
class Spinners {
 public:
  Spinners() = default;
  ~Spinners();
  Spinners(const Spinners&) = delete;
  Spinners& operator=(const Spinners&) = delete;

  // Starts a thread that spins on `cpu`; -1: on any.
  void Start(int cpu);

  size_t size() const { return threads_.size(); }

 private:
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
};

}  // namespace velmo
