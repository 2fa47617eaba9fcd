// Threads and their CPUs, the signals that must not meet them, privilege and priority.

#pragma once

#include <csignal>
#include <functional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "app/failure.h"

namespace velmo {

// Warns when the real user is not root; never stops the run.
void check_root();

// Adds `inc` to the nice value (nice(2)). Only a result of exactly 1 is warned about and reported
// as false: a call that fails (-1) stays silent, since a run without the priority is still a run.
bool change_scheduling_priority(int inc);

// Pins the calling thread to `cpu` (0..8191). exit(1) when the kernel refuses.
void set_cpu_affinity(unsigned int cpu);

// Pins `t` to `cpu` (0..8191), also while it runs. exit(1) when the kernel refuses.
void set_thread_affinity(std::thread* t, unsigned int cpu);

// exit(1) when the calling thread may run elsewhere than on `cpu`, to which it was pinned: the
// kernel moves the threads of a CPU that goes offline, and what they measured since is void.
void check_still_pinned(unsigned int cpu);

// The four signals that end a run early: SIGTSTP, SIGINT, SIGTERM, SIGQUIT.
inline constexpr int kEndSignals[] = {SIGTSTP, SIGINT, SIGTERM, SIGQUIT};

// Blocks the four end signals and SIGHUP for the calling thread while it lives. Threads started
// meanwhile inherit the mask; a signal that arrives is delivered when the block ends.
class EndSignalsBlocked {
 public:
  EndSignalsBlocked();
  ~EndSignalsBlocked();
  EndSignalsBlocked(const EndSignalsBlocked&) = delete;
  EndSignalsBlocked& operator=(const EndSignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

// Starts a thread that never receives an end signal, so that the handler runs on the main thread.
// exit(1) when the system has no room for another thread.
template <typename... Args>
std::thread start_thread(Args&&... args) {
  try {
    const EndSignalsBlocked blocked;
    return std::thread(std::forward<Args>(args)...);
  } catch (const std::system_error& failure) {
    Fatal() << "Failed to start a thread: " << failure.code().message()
            << ". Check the limits on processes and memory (ulimit -u, -v)\n";
  }
}

// Runs `task` with 0 .. cpus.size() - 1, each on a thread of its own that is pinned to that entry
// of `cpus` before it begins, and waits for all of them.
void run_pinned(const std::vector<int>& cpus, const std::function<void(size_t)>& task);

}  // namespace velmo
