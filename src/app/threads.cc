#include "app/threads.h"

#include <pthread.h>
#include <unistd.h>

#include <latch>

#include "app/console.h"
#include "app/cpu_set.h"

namespace velmo {

void check_root() {
  if (getuid() != 0) Warn() << "VELMO requires root privilege\n";
}

bool change_scheduling_priority(int inc) {
  if (nice(inc) != 1) return true;
  Warn() << "Failed to change a scheduling priority.\n";
  return false;
}

void set_cpu_affinity(unsigned int cpu) {
  if (!CpuSet::Only(cpu).ConfineCaller()) {
    Fatal() << "Failed to pin process to CPU " << cpu << '\n';
  }
}

void set_thread_affinity(std::thread* t, unsigned int cpu) {
  if (!CpuSet::Only(cpu).Confine(*t)) {
    Fatal() << "Failed to pin thread to CPU " << cpu << '\n';
  }
}

void check_still_pinned(unsigned int cpu) {
  const CpuSet pinned = CpuSet::Only(cpu);
  if (CpuSet::OfCaller().value_or(pinned) == pinned) return;
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
