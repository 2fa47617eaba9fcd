// A machine made of files: nodes and CPUs of its own behind the paths of NumaInfo.

#pragma once

#include <string>
#include <vector>

#include "platform/numa_info.h"
#include "support/subprocess.h"

namespace velmo_test {

// Four CPUs on two cores each of node 0 (0,1) and node 1 (2,3), node 2 without CPUs, nearest to
// node 1. Files may be overwritten through `files` before the machine is used.
class FakeMachine {
 public:
  FakeMachine();

  // Points `info` at this machine.
  void Install(velmo::NumaInfo& info) const;

  TempDir files;
};

}  // namespace velmo_test
