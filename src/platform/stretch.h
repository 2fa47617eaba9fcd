// Who is told when a measured stretch begins and ends.

#pragma once

#include <functional>
#include <vector>

#include "platform/watch.h"

namespace velmo {

// Both are called outside of the stretch, by the thread that waits for it or the one that measures;
// either may be empty.
struct StretchObserver {
  std::function<void(const std::vector<WatchedThread>&)> begin;  // its threads are at work
  std::function<void()> end;                                     // and still there
};

}  // namespace velmo
