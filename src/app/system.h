// Free functions that the whole program shares: privilege and priority, threads and their CPUs,
// the monotonic clock, and the conversion of numbers, sizes and CPU lists.

#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "app/console.h"

namespace velmo {

// Warns when the real user is not root; never stops the run.
void check_root();

// Adds `inc` to the nice value (nice(2)). Only a result of exactly 1 is warned about and reported
// as false: a call that fails (-1) stays silent, since a run without the priority is still a run.
bool change_scheduling_priority(int inc);

// Pins the calling thread to `cpu` (0..1023). exit(1) when the kernel refuses.
void set_cpu_affinity(unsigned int cpu);

// Pins `t` to `cpu` (0..1023), also while it runs. exit(1) when the kernel refuses.
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

// CLOCK_MONOTONIC in nanoseconds.
long monotonic_ns();

// Busy-waits `us` microseconds on the monotonic clock; 0.000001 and less returns at once. The
// thread keeps its CPU.
void usec_sleep(double us);

// CPU list as text, from index `start` on: [1,2,3,5,7,8] is "1-3,5,7-8". The list must be sorted;
// nothing left to write is "".
std::string vector_to_str_range(const std::vector<int>& v, int start);

// CPU list from text: numbers and ranges, separated by commas or blanks; sorted, each number once.
// exit(1) with a message for any other character, a range that does not rise, a number beyond
// int, text that is no number, or a list of more than 65,536 entries.
std::vector<int> str_range_to_vector(const std::string& s);

// True when every character of the non-empty `s` lies between '(' and '|' in ASCII, which admits
// digits, signs, letters and most punctuation; the conversion that follows has to catch the rest.
bool is_number(const std::string& s);

// `s` as std::stoi, std::stol and std::stoull read it: what follows the leading number is ignored.
// The exception that they throw tells the text: "Not a number: x1".
int to_int(const std::string& s);
long to_long(const std::string& s);
unsigned long long to_unsigned(const std::string& s);

// A size in bytes with an optional binary unit (k/K, m/M, g/G). exit(1) for another unit, for text
// before the unit that is no number and for a size beyond 2^63 - 1. Negative sizes pass.
int64_t get_bytes(const std::string& s);

}  // namespace velmo
