// What a look at a fleet finds: the slow hosts, what has to be surveyed again, what is missing.

#pragma once

#include <string>
#include <vector>

#include "fleet/fleet_files.h"
#include "fleet/grouping.h"
#include "fleet/host.h"
#include "fleet/outliers.h"

namespace velmo {

struct SlowHost {
  uint32_t host;                    // number in Fleet::hosts
  size_t group;                     // number in Findings::groups
  std::vector<SlowFigure> figures;  // the clearest first, which is the one to name
  std::vector<std::string> causes;  // the likeliest first
};

struct GroupFinding {
  Group group;
  bool compared = false;           // else it has too few hosts
  Judgement judgement;             // its slow figures stand with the hosts
  std::string text;                // what its hosts have in common
  std::vector<std::string> usual;  // what most of them have: "firmware 1.4"
};

struct Findings {
  FleetFiles files;
  size_t hosts = 0;
  std::vector<SlowHost> slow;        // the worst first
  std::vector<Named> again;          // hosts, and files, whose survey says nothing
  std::vector<GroupFinding> groups;  // the largest first
};

// `fleet` holds the surveys of `files`, and behind number `current` those of a history.
Findings find_slow(const Fleet& fleet, FleetFiles files, size_t current, const Rules& rules);

// "idle latency average, node 0 to node 1 +12.4 %: memory module missing: DIMM_C1"
std::string reason_text(const Fleet& fleet, const SlowHost& slow);

// "112.4 ns", "38.61 GB/s"
std::string value_text(const Fleet& fleet, uint32_t figure, double value);

// "+12.4 %"
std::string change_text(const SlowFigure& figure);

// The causes, or that there is none to see.
std::string cause_text(const SlowHost& slow);

}  // namespace velmo
