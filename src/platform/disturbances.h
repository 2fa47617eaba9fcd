// The rules that the measurements of a run broke, taken together.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/stretch.h"
#include "platform/watch.h"
#include "platform/watch_rules.h"

namespace velmo {

class Disturbances {
 public:
  // Watches the stretches of which it is told, one after the other, into this object, which must
  // outlive it. `helper_cpus` are busy on velmo's behalf.
  StretchObserver Observer(std::vector<int> helper_cpus);

  // Counts one measurement. The clock is held against no other's: each has a load of its own.
  void Add(const WatchRecord& record);

  // Counts those of another run, too.
  void Add(const Disturbances& other);

  // What broke most often, to what extent, and what to do: a line for each rule, three at most.
  std::vector<std::string> Lines() const;

 private:
  struct Broken {
    BrokenRule worst;
    int times;
  };

  void Count(const Broken& broken);

  std::optional<Watch> watch_;
  std::vector<int> helper_cpus_;
  int measurements_ = 0;
  std::vector<Broken> broken_;
};

}  // namespace velmo
