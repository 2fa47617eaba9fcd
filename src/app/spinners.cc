#include "app/spinners.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <future>
#include <utility>

#include "app/clock.h"
#include "app/cpu_set.h"
#include "app/threads.h"

namespace velmo {

void Spinners::Start(int cpu) {
  std::promise<int> tid;
  std::future<int> started = tid.get_future();
  threads_.push_back(start_thread([this, tid = std::move(tid)]() mutable {
    tid.set_value(gettid());
    const sched_param priority{};
    sched_setscheduler(0, SCHED_IDLE, &priority);
    while (!stop_.load(std::memory_order_relaxed)) monotonic_ns();
  }));
  started_.push_back({started.get(), cpu});
  if (cpu >= 0) {
    set_thread_affinity(&threads_.back(), cpu);
    return;
  }
  // The starting thread is pinned and hands that on.
  CpuSet::All().Confine(threads_.back());
}

Spinners::~Spinners() {
  stop_ = true;
  for (std::thread& thread : threads_) {
    // On a CPU that somebody else keeps busy, a thread of idle priority would not get to see the
    // flag. An ordinary user may be refused; the thread then ends when its CPU has a moment.
    const sched_param priority{};
    pthread_setschedparam(thread.native_handle(), SCHED_OTHER, &priority);
    thread.join();
  }
}

}  // namespace velmo
