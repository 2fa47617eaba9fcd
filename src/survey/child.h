// Repeats in processes of their own: what goes wrong in one is a record, not the end of a survey.

#pragma once

#include <csignal>
#include <optional>
#include <set>
#include <string>

#include "survey/measure_cell.h"

namespace velmo {

// Notes the end signals for as long as it lives, instead of ending the process.
class EndSignalsNoted {
 public:
  EndSignalsNoted();
  ~EndSignalsNoted();
  EndSignalsNoted(const EndSignalsNoted&) = delete;
  EndSignalsNoted& operator=(const EndSignalsNoted&) = delete;

  // The first signal that came; 0: none.
  static int signal() { return noted_; }

 private:
  static void Note(int signum);
  static volatile std::sig_atomic_t noted_;
  sigset_t previous_;
};

// What became of a repeat: measured, or why not.
struct ChildResult {
  std::optional<MeasuredRepeat> measured;
  std::string message;
  bool prefetchers_off = false;
};

// Forks, while this process has no other thread, and measures one repeat of `plan` in the child;
// waits for it without a wake-up, but no longer than `limit` seconds, and no longer than until an
// end signal comes. The child switches the prefetchers off and ends with this process; whoever is
// left puts them back. Prefetchers of CPUs in `stuck` are not tried; one that cannot be switched
// off is added.
ChildResult measure_in_child(const CellPlan& plan, double ticks_per_second, double limit,
                             std::set<int>& stuck);

}  // namespace velmo
