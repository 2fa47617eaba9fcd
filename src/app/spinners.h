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

  // The thread's number and its CPU, -1: any.
  struct Thread {
    int tid;
    int cpu;
  };
  const std::vector<Thread>& threads() const { return started_; }

 private:
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
  std::vector<Thread> started_;
};

}  // namespace velmo
