// Where the time of a CPU went while threads measured on it.

#pragma once

#include <vector>

#include "platform/cpu_time.h"
#include "platform/reading.h"

namespace velmo {

// A thread during the stretch, in seconds.
struct ThreadSpan {
  double wall_seconds = 0;
  Reading cpu_seconds;     // that it ran
  Reading waited_seconds;  // that it could have run, but did not; without a wait that still lasts
  bool awake = false;      // it never gave its CPU up by itself: it neither slept nor was stopped

  // That it neither ran nor could have, or its CPU was gone with it.
  Reading MissingSeconds() const;
};

// The causes of what the threads of one CPU lack. Times that the kernel counts in ticks are what is
// certain.
struct CpuAccount {
  Reading stolen_seconds;      // by the host
  Reading other_work_seconds;  // interrupts, and threads that are not watched
  Reading paused_seconds;      // a thread was stopped, slept or was in a fault: the longest
};

// `spans` are the watched threads of the CPU; `before` and `after` its times, null where they could
// not be read.
//
// What a thread waited is known to the nanosecond, and so is what it missed; the ticks of the CPU
// tell why. A thread that waited while its CPU was idle used its quota up: that is no other work.
// What it missed was stolen, where the host tells of that, as far as the ticks allow it, else
// interrupts, else a pause; of a thread that was awake, a wait whose end the kernel did not see
// yet.
CpuAccount account_for(const std::vector<ThreadSpan>& spans, const CpuTime* before,
                       const CpuTime* after);

}  // namespace velmo
