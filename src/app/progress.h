// A line on the user's terminal about a wait: what is done, how long for, how long it may still
// take. Standard output, scripts and measurements see nothing of it.
//
// The line is drawn on standard error, only where that is a terminal and velmo its foreground job,
// by a thread that sleeps but for a moment each second. That thread runs on the CPUs of the thread
// whose wait it tells, less those that measure; where none is left, as on a machine with one CPU,
// nothing is shown. What it reads is never touched by a thread that measures.

#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/clock.h"

namespace velmo {

// What is waited for. How long it will take is told in one of two ways, or not at all.
struct Phase {
  std::string label;                           // "Zeroing 2048 MiB"; no control characters
  double left = 0;                             // s from now on; 0: unknown
  int64_t steps = 0;                           // 0: unknown, as is a phase without `done`
  const std::atomic<int64_t>* done = nullptr;  // of `steps`, raised by those who do the work
  std::vector<int> measuring = {};             // CPUs that measure meanwhile
  long begun = monotonic_ns();                 // start of a wait that this is a later part of
};

// Where the line goes and when, after the start of the wait, it is first drawn and drawn again.
struct ProgressLine {
  int fd = STDERR_FILENO;
  std::chrono::milliseconds first{5000};
  std::chrono::milliseconds every{1000};
};

// The line of one phase, which ends with the object: it is erased then, and before anything else is
// written to std::cerr or, where that may reach a terminal, std::cout, by any thread. Bare system
// calls are not seen; a phase has to end before them. One object at a time; it is made before and
// destroyed after the threads that print while it lives.
class Progress {
 public:
  explicit Progress(const Phase& phase, const ProgressLine& line = {});
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  class Drawer;
  std::unique_ptr<Drawer> drawer_;  // null: nothing is shown
};

}  // namespace velmo
