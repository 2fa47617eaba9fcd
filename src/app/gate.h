// The gate that measuring and load threads wait at until all are in place.

#pragma once

#include <condition_variable>
#include <mutex>

namespace velmo {

class Gate {
 public:
  // Waits until the gate is open; returns at once when it is.
  void Wait() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    arrived_.notify_one();
    opened_.wait(lock, [this] { return open_; });
  }

  // Waits until `threads` have come to the gate. One thread at a time may ask.
  void AwaitArrival(int threads) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this, threads] { return waiting_ >= threads; });
  }

  // Lets all pass, and all that come later.
  void Open() {
    {
      const std::lock_guard lock(mutex_);
      open_ = true;
    }
    opened_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::condition_variable opened_;
  int waiting_ = 0;  // threads that came so far
  bool open_ = false;
};

}  // namespace velmo
