// What tells a slow host from its equals.

#pragma once

#include <array>
#include <string>
#include <unordered_map>
#include <vector>

#include "fleet/grouping.h"
#include "fleet/host.h"

namespace velmo {

// What most hosts of a group have in common.
class Norm {
 public:
  // `slow` are numbers of hosts, rising.
  Norm(const Fleet& fleet, const Group& group, const std::vector<uint32_t>& slow);

  // In what `host` departs from most of its group, the likeliest cause first: "memory module
  // missing: DIMM_C1". What a tenth of the hosts that are not slow share is left out, as it slows
  // none of them.
  std::vector<std::string> Departures(const Host& host) const;

  // What most hosts have of `property`; empty where it is known of none.
  const std::string& Text(Property property) const;

 private:
  const Fleet& fleet_;
  const Group& group_;
  size_t sound_ = 0;  // hosts that are not slow
  std::array<uint32_t, kProperties> usual_{};
  std::array<std::unordered_map<uint32_t, size_t>, kProperties> sound_with_;
};

}  // namespace velmo
