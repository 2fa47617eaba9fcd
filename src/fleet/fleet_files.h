// Reads the surveys of a fleet, many at a time.

#pragma once

#include <string>
#include <vector>

#include "fleet/host.h"

namespace velmo {

// Something that has no place among the hosts, with the reason.
struct Named {
  std::string name;  // of a file, or of a host
  std::string why;
};

struct FleetFiles {
  size_t files = 0;
  std::vector<Named> left_out;  // files: damaged, foreign, or an older survey of a host
  std::vector<Named> missing;   // hosts: as the files missing.txt of the directories have them
};

// Which surveys of a host count.
enum class Surveys { kNewest, kAll };

// Appends what is read to `fleet.hosts`, by name. `paths` are files, and directories of which the
// files *.json count. Throws std::runtime_error where one of them cannot be opened.
FleetFiles read_fleet(const std::vector<std::string>& paths, Surveys surveys, Fleet& fleet);

}  // namespace velmo
