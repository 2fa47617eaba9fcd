#include "app/threads.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <latch>

#include "app/console.h"

namespace velmo {
namespace {

// A set of the one CPU `cpu`; empty, which the kernel refuses, when it lies beyond the set.
cpu_set_t only(unsigned int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (cpu < CPU_SETSIZE) CPU_SET(cpu, &set);
  return set;
}

}  // namespace

void check_root() {
  if (getuid() != 0) Warn() << "VELMO requires root privilege\n";
}

bool change_scheduling_priority(int inc) {
  if (nice(inc) != 1) return true;
  Warn() << "Failed to change a scheduling priority.\n";
  return false;
}

void set_cpu_affinity(unsigned int cpu) {
  const cpu_set_t set = only(cpu);
  if (sched_setaffinity(0, sizeof set, &set) != 0) {
    Fatal() << "Failed to pin process to CPU " << cpu << '\n';
  }
}

void set_thread_affinity(std::thread* t, unsigned int cpu) {
  const cpu_set_t set = only(cpu);
  if (pthread_setaffinity_np(t->native_handle(), sizeof set, &set) != 0) {
    Fatal() << "Failed to pin thread to CPU " << cpu << '\n';
  }
}

void check_still_pinned(unsigned int cpu) {
  const cpu_set_t pinned = only(cpu);
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  // Fails, and tells nothing, where the kernel has more CPUs than the set.
  if (sched_getaffinity(0, sizeof allowed, &allowed) < 0 || CPU_EQUAL(&allowed, &pinned)) return;
  Fatal() << "CPU " << cpu << " was taken away while it measured; the result is void. It went "
          << "offline, or somebody moved the thread\n";
}

EndSignalsBlocked::EndSignalsBlocked() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signum : kEndSignals) sigaddset(&blocked, signum);
  sigaddset(&blocked, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous_);
}

EndSignalsBlocked::~EndSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

void run_pinned(const std::vector<int>& cpus, const std::function<void(size_t)>& task) {
  std::latch all_pinned(1);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < cpus.size(); ++i) {
    threads.push_back(start_thread([&all_pinned, &task, i] {
      all_pinned.wait();
      task(i);
    }));
    set_thread_affinity(&threads.back(), cpus[i]);
  }
  all_pinned.count_down();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace velmo
